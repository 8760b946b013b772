#include "Private/Database/Internal/ZAVSavepointStatement.h"

#include <sqlite3.h>

#include <algorithm>

namespace zav {
namespace {

/// The words of a statement, one after the other.
class Words {
public:
    explicit Words(std::string_view sql) : rest_(sql) {}

    /// The next keyword or name, without its quotation marks; "" at the end and before anything else.
    std::string next() {
        skipBlanksAndComments();
        if (rest_.empty()) {
            return {};
        }
        switch (rest_.front()) {
            case '[':
                return quoted(']');
            case '"':
            case '\'':
            case '`':
                return quoted(rest_.front());
            default:
                return plain();
        }
    }

private:
    void skipBlanksAndComments() {
        for (;;) {
            rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n\f"), rest_.size()));
            if (rest_.starts_with("--")) {
                skipPast("\n");
            } else if (rest_.starts_with("/*")) {
                rest_.remove_prefix(2);
                skipPast("*/");
            } else {
                return;
            }
        }
    }

    void skipPast(std::string_view end) {
        const auto position = rest_.find(end);
        rest_.remove_prefix(position == std::string_view::npos ? rest_.size() : position + end.size());
    }

    /// A doubled quotation mark stands for itself, but not a bracket.
    std::string quoted(char end) {
        std::string word;
        rest_.remove_prefix(1);
        while (!rest_.empty()) {
            const char character = rest_.front();
            rest_.remove_prefix(1);
            if (character == end) {
                if (end == ']' || rest_.empty() || rest_.front() != end) {
                    break;
                }
                rest_.remove_prefix(1);
            }
            word += character;
        }
        return word;
    }

    std::string plain() {
        const auto isOfName = [](char character) {
            const auto byte = static_cast<unsigned char>(character);
            return byte >= 0x80 || byte == '_' || byte == '$' || (byte >= '0' && byte <= '9') ||
                   (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
        };
        const auto* const end = std::find_if_not(rest_.begin(), rest_.end(), isOfName);
        std::string word(rest_.begin(), end);
        rest_.remove_prefix(word.size());
        return word;
    }

    std::string_view rest_;
};

bool isKeyword(const std::string& word, const char* keyword) {
    return sqlite3_stricmp(word.c_str(), keyword) == 0;
}

/// The name after the word SAVEPOINT, which may be left out.
std::string nameFrom(Words& words) {
    std::string word = words.next();
    if (!isKeyword(word, "SAVEPOINT")) {
        return word;
    }
    std::string name = words.next();
    return name.empty() ? word : name;
}

}  // namespace

ZAVSavepointStatement::ZAVSavepointStatement(std::string_view sql) {
    Words words(sql);
    const std::string verb = words.next();
    if (isKeyword(verb, "BEGIN") || isKeyword(verb, "COMMIT") || isKeyword(verb, "END")) {
        kind = Kind::transaction;
    } else if (isKeyword(verb, "SAVEPOINT")) {
        kind = Kind::set;
        name = words.next();
    } else if (isKeyword(verb, "RELEASE")) {
        kind = Kind::release;
        name = nameFrom(words);
    } else if (isKeyword(verb, "ROLLBACK")) {
        kind = Kind::transaction;
        // A transaction may be named, which has no effect.
        std::string word = words.next();
        if (isKeyword(word, "TRANSACTION")) {
            word = words.next();
        }
        if (!isKeyword(word, "TO")) {
            word = words.next();
        }
        if (isKeyword(word, "TO")) {
            kind = Kind::rollbackTo;
            name = nameFrom(words);
        }
    }
}

}  // namespace zav
