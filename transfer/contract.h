// What the service, its callers and the device agree on: names on the bus, sticks, packages, codes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// --- Bus ---

inline constexpr const char* kServiceName = "com.morvane.transfer";
inline constexpr const char* kControlPath = "/ctrl";
inline constexpr const char* kControlInterface = "com.morvane.dbus";
inline constexpr const char* kTransferPath = "/sacIntf";
inline constexpr const char* kTransferInterface = "com.morvane.transfer.sac";

inline constexpr const char* kAppletControlName = "com.morvane.scctrl";
inline constexpr const char* kAppletControlPath = "/scctrlIntf";
inline constexpr const char* kAppletControlInterface = "com.morvane.scctrl";

// --- Sticks: mounted at "/media/usb/USB_X60.1" and so on ---

inline constexpr const char* kMountBase = "/media/usb";
inline constexpr const char* kStickPrefix = "USB_X60.";
inline constexpr int kFirstStick = 1;
inline constexpr int kLastStick = 4;

// --- Packages: a path that contains the marker is one for the device manager ---

inline constexpr const char* kBackupMarker = ".psb";
inline constexpr const char* kUpdateMarker = ".fwf";

// Kept: the marker counts anywhere in the path, so "x.psb.old" and whatever lies below "set.psb/"
// have it.
inline bool hasMarker(const std::string& path, const std::string& marker) {
    return path.find(marker) != std::string::npos;
}

// A level of the search for packages ends when the list holds this many.
inline constexpr std::size_t kTreeListLimit = 30;

// --- Jobs ---

// What starting a job answers.
enum class JobResult : std::int32_t {
    NoThread = -1,  // the worker thread could not be created
    Started = 0,  // the worker runs; its outcome is reported to nobody
    BadFileName = 1,  // empty, or without the marker of its kind
    StickNotMounted = 2,  // Kept: no such directory, whatever the mount table says
    NotEnoughSpace = 3,  // backup only. Kept: also when the size cannot be learnt
    FileMissing = 5,  // update only
};

// --- Device manager ---

inline constexpr const char* kDeviceManagerEndpoint = "127.0.0.1:5001";
inline constexpr std::uint16_t kDeviceManagerPort = 5001;
