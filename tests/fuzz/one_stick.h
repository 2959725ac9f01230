// The stick of the fuzz targets that work on one, and the manager that they try.
#pragma once

#include "tests/support/files/files.h"
#include "transfer/tf_mngr.h"

namespace fuzz {

inline constexpr const char* kStick = "/media/usb/USB_X60.1";

// One for the life of the process, as in the service; the first call makes the stick's directory.
inline TfMngr& manager() {
    static TfMngr* const kManager = [] {
        test_support::makeDirectories(kStick);
        return new TfMngr;
    }();
    return *kManager;
}

}  // namespace fuzz
