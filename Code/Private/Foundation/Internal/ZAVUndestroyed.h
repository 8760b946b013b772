#pragma once

namespace zav {

/// An object that is made and never destroyed: threads and static objects may use it until the process is
/// gone.
template <class T>
union ZAVUndestroyed {
    constexpr ZAVUndestroyed() noexcept : value() {}
    ~ZAVUndestroyed() {}  // NOLINT(modernize-use-equals-default): the default one would destroy the object
    ZAVUndestroyed(const ZAVUndestroyed&) = delete;
    ZAVUndestroyed& operator=(const ZAVUndestroyed&) = delete;

    T value;
};

}  // namespace zav
