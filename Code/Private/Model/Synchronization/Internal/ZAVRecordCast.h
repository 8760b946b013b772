#pragma once

#include <typeinfo>

namespace zav {

/// `object` as a `Record`; null when it is not one, or is null. A record of that very class, which nearly
/// every one is, is recognised without a search through its bases.
template <class Record, class Object>
[[nodiscard]] Record* ZAVRecordCast(Object* object) noexcept {
    if (object != nullptr && typeid(*object) == typeid(Record)) {
        return static_cast<Record*>(object);
    }
    return dynamic_cast<Record*>(object);
}

}  // namespace zav
