// GObjects that go with their owner.
#pragma once

#include <glib-object.h>

#include <memory>

namespace transferctl {

struct ReleaseObject {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using ObjectHolder = std::unique_ptr<T, ReleaseObject>;

}  // namespace transferctl
