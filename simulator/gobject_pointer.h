// Ownership of one reference to a GObject.
#pragma once

#include <glib-object.h>

#include <memory>

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

template <typename Object>
using GObjectPointer = std::unique_ptr<Object, GObjectUnref>;
