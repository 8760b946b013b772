#include <soci/soci-config.h>
#undef SOCI_HAVE_BOOST  // adds overloads only, and needs a package that this one does not bring along
#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <array>
#include <deque>

#include "Binding.h"
#include "Connection.h"
#include "HandWrittenContender.h"

namespace zav::bench {
namespace {

/// A variable that SOCI binds to a placeholder or a column.
struct Variable {
    Kind kind;
    long long integer = 0;
    double real = 0;
    std::string text;
    std::optional<soci::blob> blob;
    soci::indicator indicator = soci::i_ok;
};

/// A prepared statement with the variables that it is bound to once and for all.
class SociStatement {
public:
    SociStatement(soci::session& session, const SqlText& sql, std::span<const Kind> placeholders)
        : statement_(session) {
        statement_.alloc();
        for (const Kind kind : placeholders) {
            Variable& variable = add(placeholders_, session, kind);
            visit(variable, [&](auto& value) { statement_.exchange(soci::use(value, variable.indicator)); });
        }
        for (const char letter : sql.columns) {
            Variable& variable = add(columns_, session, kindOfColumn(letter));
            visit(variable, [&](auto& value) { statement_.exchange(soci::into(value, variable.indicator)); });
        }
        statement_.prepare(sql.text);
        statement_.define_and_bind();
    }

    // What a binder hands over.
    void null(int position, Kind) { placeholder(position).indicator = soci::i_null; }
    void integer(int position, std::int64_t value) { set(position).integer = value; }
    void real(int position, double value) { set(position).real = value; }
    void text(int position, const std::string& value) { set(position).text = value; }
    void blob(int position, const void* bytes, std::size_t size) {
        soci::blob& blob = *set(position).blob;
        blob.trim(0);
        blob.append(static_cast<const char*>(bytes), size);
    }

    void start() { statement_.execute(false); }
    bool next() { return statement_.fetch(); }
    long long run() {
        statement_.execute(true);
        return statement_.get_affected_rows();
    }

    Variable& column(int index) { return columns_[static_cast<std::size_t>(index)]; }

private:
    static Kind kindOfColumn(char letter) {
        switch (letter) {
            case 'i':
                return Kind::integer;
            case 'd':
                return Kind::real;
            case 's':
                return Kind::text;
            default:
                return Kind::blob;
        }
    }

    static Variable& add(std::deque<Variable>& variables, soci::session& session, Kind kind) {
        Variable& variable = variables.emplace_back();
        variable.kind = kind;
        if (kind == Kind::blob) {
            variable.blob.emplace(session);
        }
        return variable;
    }

    template <class Use>
    static void visit(Variable& variable, const Use& use) {
        switch (variable.kind) {
            case Kind::integer:
                return use(variable.integer);
            case Kind::real:
                return use(variable.real);
            case Kind::text:
                return use(variable.text);
            case Kind::blob:
                return use(*variable.blob);
        }
    }

    Variable& placeholder(int position) { return placeholders_[static_cast<std::size_t>(position) - 1]; }
    Variable& set(int position) {
        Variable& variable = placeholder(position);
        variable.indicator = soci::i_ok;
        return variable;
    }

    std::deque<Variable> placeholders_;
    std::deque<Variable> columns_;
    soci::statement statement_;
};

/// SOCI, with prepared statements that are executed again after their bound variables have changed.
class SociEngine {
    class Rows {
    public:
        explicit Rows(SociStatement& statement) : statement_(statement) { statement_.start(); }

        /// A statement that stands on a row keeps a read transaction open, and cannot be reset: it is run to
        /// its end, which for a lookup is one step away. Not so when the caller wanted some of many rows.
        ~Rows() {
            if (rows_ == 1) {
                try {
                    statement_.next();
                } catch (const std::exception&) {
                    rows_ = 0;  // nothing depends on it
                }
            }
        }
        Rows(const Rows&) = delete;
        Rows& operator=(const Rows&) = delete;

        bool next() {
            const bool found = statement_.next();
            rows_ = found ? rows_ + 1 : 0;
            return found;
        }
        [[nodiscard]] bool isNull(int column) const {
            return statement_.column(column).indicator == soci::i_null;
        }
        [[nodiscard]] std::int64_t int64(int column) const {
            const Variable& value = statement_.column(column);
            if (value.indicator == soci::i_null) {
                return 0;
            }
            return value.kind == Kind::real ? static_cast<std::int64_t>(value.real) : value.integer;
        }
        [[nodiscard]] double real(int column) const { return statement_.column(column).real; }
        [[nodiscard]] std::optional<std::string> text(int column) const {
            return isNull(column) ? std::nullopt : std::optional(statement_.column(column).text);
        }
        [[nodiscard]] std::optional<std::span<const std::uint8_t>> bytes(int column) {
            Variable& value = statement_.column(column);
            if (value.indicator == soci::i_null) {
                return std::nullopt;
            }
            buffer_.resize(value.blob->get_len());
            value.blob->read(0, reinterpret_cast<char*>(buffer_.data()), buffer_.size());
            return std::span<const std::uint8_t>(buffer_);
        }

    private:
        SociStatement& statement_;
        std::vector<std::uint8_t> buffer_;
        std::size_t rows_ = 0;
    };

public:
    explicit SociEngine(const std::string& path) : session_(soci::sqlite3, "dbname=\"" + path + "\"") {
        configure(connection());
    }

    [[nodiscard]] ::sqlite3* connection() {
        auto* const backend = static_cast<soci::sqlite3_session_backend*>(session_.get_backend());
        return reinterpret_cast<::sqlite3*>(backend->conn_);
    }
    [[nodiscard]] long long changes() const { return changes_; }
    [[nodiscard]] std::int64_t lastInsertRowId() {
        long long row = 0;
        session_.get_last_insert_id("events", row);
        return row;
    }

    template <class... Values>
    Rows query(Sql sql, const Values&... values) {
        return Rows(bound(sql, values...));
    }

    template <class... Values>
    void update(Sql sql, const Values&... values) {
        changes_ = bound(sql, values...).run();
    }

    void updateList(Sql sql, std::span<const ZAVDatabaseIdentifier> rows) {
        SociStatement& statement = statementFor(sql, std::vector<Kind>(rows.size(), Kind::integer));
        int position = 0;
        for (const ZAVDatabaseIdentifier row : rows) {
            statement.integer(++position, row);
        }
        changes_ = statement.run();
    }

    void replace(Sql sql, std::string text) {
        kept_[static_cast<std::size_t>(sql)].reset();
        texts_[static_cast<std::size_t>(sql)].text = std::move(text);
    }

private:
    template <class... Values>
    SociStatement& bound(Sql sql, const Values&... values) {
        static constexpr std::array<Kind, sizeof...(Values)> kinds{kindOf<Values>()...};
        SociStatement& statement = statementFor(sql, kinds);
        bindValues(statement, values...);
        return statement;
    }

    SociStatement& statementFor(Sql sql, std::span<const Kind> placeholders) {
        const auto index = static_cast<std::size_t>(sql);
        if (!kept_[index]) {
            kept_[index] = std::make_unique<SociStatement>(session_, texts_[index], placeholders);
        }
        return *kept_[index];
    }

    SqlTexts texts_ = makeSqlTexts();
    soci::session session_;
    std::array<std::unique_ptr<SociStatement>, sqlCount> kept_;
    long long changes_ = 0;
};

}  // namespace

std::unique_ptr<Contender> openSoci(const std::string& path) {
    return std::make_unique<HandWrittenContender<SociEngine>>(path);
}

}  // namespace zav::bench
