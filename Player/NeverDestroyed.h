#pragma once

#include <cstddef>
#include <new>

namespace Tavrin::Player {

/// An object of static storage that lives to the end of the process: a client's static objects may use it before and after
/// this library's own have lived. Takes no dynamic memory, so that its first use cannot fail.
///
///     static NeverDestroyed<Tools::Semaphore> semaphore;
///     semaphore.Get().Signal();
template <typename Object>
class NeverDestroyed final {
public:
    NeverDestroyed() : object_(new (memory_) Object) {}
    ~NeverDestroyed() = default;
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    Object& Get() { return *object_; }

private:
    alignas(Object) std::byte memory_[sizeof(Object)];
    Object* object_;
};

}  // namespace Tavrin::Player
