#include <SQLiteCpp/SQLiteCpp.h>

#include <array>

#include "Binding.h"
#include "Connection.h"
#include "HandWrittenContender.h"

namespace zav::bench {
namespace {

/// SQLiteCpp, with statements that are kept, reset and bound anew, and values bound without a copy.
class SQLiteCppEngine {
    struct Binder {
        SQLite::Statement& statement;

        void null(int position, Kind) const { statement.bind(position); }
        void integer(int position, std::int64_t value) const { statement.bind(position, value); }
        void real(int position, double value) const { statement.bind(position, value); }
        void text(int position, const std::string& value) const { statement.bindNoCopy(position, value); }
        void blob(int position, const void* bytes, std::size_t size) const {
            statement.bindNoCopy(position, bytes, static_cast<int>(size));
        }
    };

    class Rows {
    public:
        explicit Rows(SQLite::Statement& statement) : statement_(statement) {}
        ~Rows() { statement_.tryReset(); }
        Rows(const Rows&) = delete;
        Rows& operator=(const Rows&) = delete;

        bool next() { return statement_.executeStep(); }
        [[nodiscard]] bool isNull(int column) const { return statement_.isColumnNull(column); }
        [[nodiscard]] std::int64_t int64(int column) const { return statement_.getColumn(column).getInt64(); }
        [[nodiscard]] double real(int column) const { return statement_.getColumn(column).getDouble(); }
        [[nodiscard]] std::optional<std::string> text(int column) const {
            const SQLite::Column value = statement_.getColumn(column);
            return value.isNull() ? std::nullopt : std::optional(value.getString());
        }
        [[nodiscard]] std::optional<std::span<const std::uint8_t>> bytes(int column) const {
            const SQLite::Column value = statement_.getColumn(column);
            if (value.isNull()) {
                return std::nullopt;
            }
            const auto* bytes = static_cast<const std::uint8_t*>(value.getBlob());
            return std::span(bytes, static_cast<std::size_t>(value.getBytes()));
        }

    private:
        SQLite::Statement& statement_;
    };

public:
    explicit SQLiteCppEngine(const std::string& path)
        : database_(path, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX) {
        configure(connection());
    }

    [[nodiscard]] sqlite3* connection() const { return database_.getHandle(); }
    [[nodiscard]] int changes() const { return database_.getChanges(); }
    [[nodiscard]] std::int64_t lastInsertRowId() const { return database_.getLastInsertRowid(); }

    template <class... Values>
    Rows query(Sql sql, const Values&... values) {
        const Binder binder{statementFor(sql)};
        bindValues(binder, values...);
        return Rows(binder.statement);
    }

    template <class... Values>
    void update(Sql sql, const Values&... values) {
        const Binder binder{statementFor(sql)};
        bindValues(binder, values...);
        run(binder.statement);
    }

    void updateList(Sql sql, std::span<const ZAVDatabaseIdentifier> rows) {
        const Binder binder{statementFor(sql)};
        int position = 0;
        for (const ZAVDatabaseIdentifier row : rows) {
            binder.integer(++position, row);
        }
        run(binder.statement);
    }

    void replace(Sql sql, std::string text) {
        kept_[static_cast<std::size_t>(sql)].reset();
        texts_[static_cast<std::size_t>(sql)].text = std::move(text);
    }

private:
    SQLite::Statement& statementFor(Sql sql) {
        const auto index = static_cast<std::size_t>(sql);
        if (!kept_[index]) {
            kept_[index].emplace(database_, texts_[index].text);
        }
        return *kept_[index];
    }

    static void run(SQLite::Statement& statement) {
        statement.exec();
        statement.reset();
    }

    SqlTexts texts_ = makeSqlTexts();
    SQLite::Database database_;
    std::array<std::optional<SQLite::Statement>, sqlCount> kept_;
};

}  // namespace

std::unique_ptr<Contender> openSQLiteCpp(const std::string& path) {
    return std::make_unique<HandWrittenContender<SQLiteCppEngine>>(path);
}

}  // namespace zav::bench
