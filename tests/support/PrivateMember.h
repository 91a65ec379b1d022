#pragma once

#include <cstddef>

/// Reaches private members for tests of layout and state. An explicit instantiation may name a private member, and
/// its friend function hands the pointer out.
template <typename Tag, auto MEMBER>
struct Reveal
{
    friend constexpr auto reveal(Tag) { return MEMBER; }
};

/// Declares `tag`, through which reveal(tag{}) returns a pointer to the private member CLASS::MEMBER. At global
/// scope only:
///
/// ```cpp
/// REVEAL_MEMBER(Channel, CanInterface, channel);
/// EXPECT_EQ(sut.*reveal(Channel{}), 3);
/// ```
#define REVEAL_MEMBER(tag, CLASS, MEMBER)                                                                          \
    struct tag                                                                                                     \
    {                                                                                                              \
        friend constexpr auto reveal(tag);                                                                         \
    };                                                                                                             \
    template struct Reveal<tag, &CLASS::MEMBER>

/// Where a member lies inside `object`, in bytes.
template <typename Class, typename Owner, typename Member>
size_t offsetIn(const Class& object, Member Owner::*member)
{
    return static_cast<size_t>(reinterpret_cast<const char*>(&(object.*member)) -
                               reinterpret_cast<const char*>(&object));
}
