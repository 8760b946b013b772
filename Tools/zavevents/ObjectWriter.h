#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zavevents {

/// Appends text as a JSON string. A byte that is not UTF-8, which a database made elsewhere may hold, is
/// replaced: a line must be UTF-8 itself.
void appendJSONString(std::string_view text, std::string& out);

/// One JSON object that is appended to a text: commas and keys. A value that is none is left out.
class ObjectWriter {
public:
    explicit ObjectWriter(std::string& out) : out_(out) { out_ += '{'; }

    /// Begins the next field, whose value is appended to the text. Keys need no escaping.
    void key(std::string_view name);

    template <std::integral Number>
    void add(std::string_view name, Number number) {
        key(name);
        std::array<char, 24> digits;
        out_.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
    }
    void add(std::string_view name, bool flag) {
        key(name);
        out_ += flag ? "true" : "false";
    }
    void add(std::string_view name, std::string_view text) {
        key(name);
        appendJSONString(text, out_);
    }
    void add(std::string_view name, const zav::ZAVUUID& uuid) { add(name, uuid.UUIDString()); }
    void add(std::string_view name, zav::ZAVDate date);
    template <class T>
    void add(std::string_view name, const std::optional<T>& value) {
        if (value) {
            add(name, *value);
        }
    }

    void addBase64(std::string_view name, const zav::ZAVData& data);

    void close() { out_ += '}'; }

private:
    std::string& out_;
    bool first_ = true;
};

}  // namespace zavevents
