#pragma once

#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// Root of the records: a class name and a printable description.
///
/// Records are shared, mutable objects with identity; they are handed around by `std::shared_ptr` and never
/// copied.
class ZAV_EXPORT ZAVObject {
public:
    virtual ~ZAVObject() = default;
    ZAVObject(const ZAVObject&) = delete;
    ZAVObject& operator=(const ZAVObject&) = delete;

    /// The name of the record's class, such as "ZAVEvent".
    [[nodiscard]] virtual std::string_view className() const noexcept = 0;

    /// One line of bounded length: the class name and the fields that are set, such as `<ZAVEvent
    /// databaseIdentifier=7 type=4>`. A text is shown so that it can neither forge a line nor command a
    /// terminal, with escapes such as `\n`; of one beyond 256 bytes the beginning.
    [[nodiscard]] std::string description() const;

protected:
    ZAVObject() = default;

    /// Appends ` name=value` for each field worth showing. A derived class also calls its base, and escapes
    /// and bounds texts of its own.
    virtual void describeFields(std::string& text) const;
};

}  // namespace zav
