#pragma once

struct sqlite3;
struct sqlite3_file;

namespace zav {

/// The place of the one who has the write lock next, among all connections to a file with a write-ahead log.
///
/// The engine gives the lock to whoever asks for it at the right moment, and one who writes without a pause
/// is always there first. So one who waits takes this place while it pauses, and others who see it taken do
/// not ask meanwhile.
///
/// The place is the lock of the file that is called reserved, for which the engine has no use while there is
/// a log. It is had only while the engine does not run on the connection, and so is never taken for the
/// engine's own. Where there is no log, and where the file has no such lock, nobody can take it.
class ZAVNextWriter {
public:
    /// @param connection an open connection; null for none.
    explicit ZAVNextWriter(sqlite3* connection) noexcept;
    ~ZAVNextWriter() = default;
    ZAVNextWriter(const ZAVNextWriter&) = delete;
    ZAVNextWriter& operator=(const ZAVNextWriter&) = delete;

    /// Whether another connection has the place.
    [[nodiscard]] bool isAnother() const noexcept;

    enum class Attempt { taken, isAnother, impossible };
    [[nodiscard]] Attempt take() const noexcept;
    void giveUp() const noexcept;

private:
    [[nodiscard]] bool hasPlace() const noexcept;

    sqlite3_file* file_ = nullptr;
};

}  // namespace zav
