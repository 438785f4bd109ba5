// Gives a concrete stream the destructor slot that the host's compiler expects.
#pragma once

#include <framefeed/framefeed.h>

namespace platform {

template <class Derived>
class HostDestructibleStream : public Stream {
#if FRAMEFEED_MSVC_DELETING_DESTRUCTOR
public:
    void* ScalarDeletingDestructor(unsigned int flags) override {
        Derived* self = static_cast<Derived*>(this);
        if (flags & 1u)
            delete self;
        else
            self->~Derived();
        return self;
    }
#endif
};

}  // namespace platform
