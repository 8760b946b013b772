#pragma once

#include <memory>
#include <optional>

#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVDictionary.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVKeyedValuesContext.h>

namespace zav {

/// The dictionary of one object as it is stored.
class ZAVKeyedValues {
public:
    /// @param keyedValues the dictionary, which is taken over.
    explicit ZAVKeyedValues(ZAVDictionary keyedValues) noexcept : keyedValues_(std::move(keyedValues)) {}

    /// Keys with text or bytes, in ascending order of the keys.
    [[nodiscard]] const ZAVDictionary& keyedValues() const noexcept { return keyedValues_; }

private:
    ZAVDictionary keyedValues_;
};

/// Stores dictionaries beside the objects that they belong to. Text stays text, and bytes stay bytes.
class ZAV_EXPORT ZAVKeyedValueRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// A repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    [[nodiscard]] static ZAVKeyedValueRepository repositoryWithDatabase(
        std::shared_ptr<FMDatabase> database) {
        return ZAVKeyedValueRepository(std::move(database));
    }

    /// The stored dictionary of an object; an empty one when nothing is stored.
    /// @return null on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVKeyedValues> keyedValuesInContext(const ZAVKeyedValuesContext& context,
                                                                     ZAVError* error = nullptr) const;

    /// Makes exactly `dictionary` the stored dictionary of an object: new keys are added, others replaced,
    /// and keys that it lacks removed. What is stored already as it would be written, with this timestamp, is
    /// left alone: storing the same dictionary again writes nothing. A failure part-way keeps what was
    /// written before it.
    /// @param timestamp when the values were set, kept beside each.
    /// @return whether everything was stored; if not, the reason is in `error`.
    bool setKeyedValuesWithDictionary(const ZAVDictionary& dictionary, std::optional<ZAVDate> timestamp,
                                      const ZAVKeyedValuesContext& context, ZAVError* error = nullptr) const;
};

}  // namespace zav
