// Owning pointer to one of GLib's key files.
#pragma once

#include <glib.h>

#include <memory>

struct KeyFileUnref {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, KeyFileUnref>;
