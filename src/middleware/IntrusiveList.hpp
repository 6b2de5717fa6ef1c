// SPDX-License-Identifier: Apache-2.0
// The lists of the middleware: links inside the elements, so no allocation, and removal in constant time. Not thread-safe.
#ifndef NORVANE_MIDDLEWARE_INTRUSIVELIST_HPP
#define NORVANE_MIDDLEWARE_INTRUSIVELIST_HPP

#include <boost/intrusive/list.hpp>

namespace norvane {
namespace mw {

/// Membership of an element in one list. A removed element keeps its old links, so a hook cannot tell whether it is in the list.
typedef boost::intrusive::list_member_hook<boost::intrusive::link_mode<boost::intrusive::normal_link>> ListHook;

/// A list through one of its elements' hooks. It does not count them.
template <typename T, ListHook T::*HOOK>
using IntrusiveList =
    boost::intrusive::list<T, boost::intrusive::member_hook<T, ListHook, HOOK>, boost::intrusive::constant_time_size<false>>;

}  // namespace mw
}  // namespace norvane

#endif
