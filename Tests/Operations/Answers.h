#pragma once

#include <ZAVEventRepository/ZAVEventRepository.h>

#include <memory>
#include <optional>
#include <string>

#include "Operations/Operation.h"

namespace zav::test {

// What an operation answered, as the catalogue writes it.

[[nodiscard]] inline Answer answer(bool succeeded) {
    return {succeeded ? "true" : "false"};
}

[[nodiscard]] inline Answer answer(ZAVSize number) {
    return {std::to_string(number)};
}

[[nodiscard]] inline Answer answerOfRow(ZAVDatabaseIdentifier row) {
    return {std::to_string(row)};
}

[[nodiscard]] inline Answer answer(const std::optional<ZAVSet<ZAVEvent>>& events) {
    return events ? Answer{"set", {events->begin(), events->end()}} : Answer{"none"};
}

[[nodiscard]] inline Answer answer(const std::optional<ZAVSet<ZAVEventContent>>& contents) {
    return contents ? Answer{"set", {}, {contents->begin(), contents->end()}} : Answer{"none"};
}

[[nodiscard]] inline Answer answer(const std::shared_ptr<ZAVEvent>& event) {
    return event ? Answer{"event", {event}} : Answer{"null"};
}

[[nodiscard]] inline Answer answer(const std::shared_ptr<ZAVEventContent>& content) {
    return content ? Answer{"part", {}, {content}} : Answer{"null"};
}

}  // namespace zav::test
