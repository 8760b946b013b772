#pragma once

#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVObject.h>

namespace zav {

/// A message as an application sees it: a row of `messages`, which an event carries.
class ZAV_EXPORT ZAVMessage : public ZAVObject {
public:
    /// @param databaseIdentifier the row of a recorded message.
    explicit ZAVMessage(ZAVDatabaseIdentifier databaseIdentifier = ZAVDatabaseIdentifierNotSet) noexcept
        : databaseIdentifier_(databaseIdentifier) {}

    /// Row of the message.
    [[nodiscard]] ZAVDatabaseIdentifier databaseIdentifier() const noexcept { return databaseIdentifier_; }

    /// Names another row.
    void setDatabaseIdentifier(ZAVDatabaseIdentifier value) noexcept { databaseIdentifier_ = value; }

    [[nodiscard]] std::string_view className() const noexcept override { return "ZAVMessage"; }

protected:
    void describeFields(std::string& text) const override {
        text += " databaseIdentifier=" + std::to_string(databaseIdentifier_);
    }

private:
    ZAVDatabaseIdentifier databaseIdentifier_;
};

}  // namespace zav
