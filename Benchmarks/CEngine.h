#pragma once

#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "Binding.h"
#include "Connection.h"
#include "Statements.h"

namespace zav::bench {

/// Whether a statement is prepared once and kept, or prepared and finalised each time.
enum class Statements { kept, temporary };

/// The engine's C interface, with nothing between.
template <Statements policy>
class CEngine {
    struct Binder {
        CEngine& engine;
        sqlite3_stmt* statement;

        void null(int position, Kind) const { engine.check(sqlite3_bind_null(statement, position)); }
        void integer(int position, std::int64_t value) const {
            engine.check(sqlite3_bind_int64(statement, position, value));
        }
        void real(int position, double value) const {
            engine.check(sqlite3_bind_double(statement, position, value));
        }
        void text(int position, const std::string& value) const {
            engine.check(sqlite3_bind_text(statement, position, value.data(), static_cast<int>(value.size()),
                                           SQLITE_STATIC));
        }
        void blob(int position, const void* bytes, std::size_t size) const {
            engine.check(
                sqlite3_bind_blob(statement, position, bytes, static_cast<int>(size), SQLITE_STATIC));
        }
    };

    class Rows {
    public:
        Rows(CEngine& engine, sqlite3_stmt* statement) : engine_(engine), statement_(statement) {}
        ~Rows() { release(statement_); }
        Rows(const Rows&) = delete;
        Rows& operator=(const Rows&) = delete;

        bool next() {
            const int status = sqlite3_step(statement_);
            if (status != SQLITE_ROW && status != SQLITE_DONE) {
                engine_.fail();
            }
            return status == SQLITE_ROW;
        }
        [[nodiscard]] bool isNull(int column) const {
            return sqlite3_column_type(statement_, column) == SQLITE_NULL;
        }
        [[nodiscard]] std::int64_t int64(int column) const {
            return sqlite3_column_int64(statement_, column);
        }
        [[nodiscard]] double real(int column) const { return sqlite3_column_double(statement_, column); }
        [[nodiscard]] std::optional<std::string> text(int column) const {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
            if (text == nullptr) {
                return std::nullopt;
            }
            return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
        }
        [[nodiscard]] std::optional<std::span<const std::uint8_t>> bytes(int column) const {
            const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
            if (bytes == nullptr && isNull(column)) {
                return std::nullopt;
            }
            return std::span(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
        }

    private:
        CEngine& engine_;
        sqlite3_stmt* statement_;
    };

public:
    explicit CEngine(const std::string& path) {
        if (sqlite3_open_v2(path.c_str(), &connection_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                            nullptr) != SQLITE_OK) {
            fail();
        }
        configure(connection_);
    }
    ~CEngine() {
        for (sqlite3_stmt* const statement : kept_) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(connection_);
    }
    CEngine(const CEngine&) = delete;
    CEngine& operator=(const CEngine&) = delete;

    [[nodiscard]] sqlite3* connection() const { return connection_; }
    [[nodiscard]] int changes() const { return sqlite3_changes(connection_); }
    [[nodiscard]] std::int64_t lastInsertRowId() const { return sqlite3_last_insert_rowid(connection_); }

    template <class... Values>
    Rows query(Sql sql, const Values&... values) {
        const Binder binder{*this, statementFor(sql)};
        bindValues(binder, values...);
        return Rows(*this, binder.statement);
    }

    template <class... Values>
    void update(Sql sql, const Values&... values) {
        const Binder binder{*this, statementFor(sql)};
        bindValues(binder, values...);
        run(binder.statement);
    }

    void updateList(Sql sql, std::span<const ZAVDatabaseIdentifier> rows) {
        const Binder binder{*this, statementFor(sql)};
        int position = 0;
        for (const ZAVDatabaseIdentifier row : rows) {
            binder.integer(++position, row);
        }
        run(binder.statement);
    }

    void replace(Sql sql, std::string text) {
        const auto index = static_cast<std::size_t>(sql);
        sqlite3_finalize(std::exchange(kept_[index], nullptr));
        texts_[index].text = std::move(text);
    }

private:
    sqlite3_stmt* statementFor(Sql sql) {
        const auto index = static_cast<std::size_t>(sql);
        if constexpr (policy == Statements::kept) {
            if (kept_[index] == nullptr) {
                kept_[index] = prepare(texts_[index].text);
            }
            return kept_[index];
        } else {
            return prepare(texts_[index].text);
        }
    }

    sqlite3_stmt* prepare(const std::string& text) {
        sqlite3_stmt* statement = nullptr;
        const int size = static_cast<int>(text.size()) + 1;
#ifdef SQLITE_PREPARE_PERSISTENT
        constexpr unsigned flags = policy == Statements::kept ? SQLITE_PREPARE_PERSISTENT : 0;
        check(sqlite3_prepare_v3(connection_, text.c_str(), size, flags, &statement, nullptr));
#else
        check(sqlite3_prepare_v2(connection_, text.c_str(), size, &statement, nullptr));
#endif
        return statement;
    }

    static void release(sqlite3_stmt* statement) {
        if constexpr (policy == Statements::kept) {
            sqlite3_reset(statement);
        } else {
            sqlite3_finalize(statement);
        }
    }

    void run(sqlite3_stmt* statement) {
        const int status = sqlite3_step(statement);
        if (status != SQLITE_DONE) {
            fail();
        }
        release(statement);
    }

    void check(int status) const {
        if (status != SQLITE_OK) {
            fail();
        }
    }
    [[noreturn]] void fail() const {
        throw std::runtime_error(sqlite3_errmsg(connection_));
    }

    SqlTexts texts_ = makeSqlTexts();
    sqlite3* connection_ = nullptr;
    std::array<sqlite3_stmt*, sqlCount> kept_{};
};

}  // namespace zav::bench
