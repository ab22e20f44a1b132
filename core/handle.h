// What a stage's C entry points give for a null handle, written once.
#ifndef EQDRC_CORE_HANDLE_H
#define EQDRC_CORE_HANDLE_H

namespace eqdrc {

// Every stage's _Destroy returns this for a null handle and 0 otherwise.
constexpr int kNullHandle = -3;

// A stage's _Destroy: the null result, or the object's own tear-down.
template <class State>
int destroy_handle(State *state)
{
    if (state == nullptr)
        return kNullHandle;
    state->destroy();
    return 0;
}

}  // namespace eqdrc

#endif
