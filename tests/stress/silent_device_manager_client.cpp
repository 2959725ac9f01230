// Has the plain device library read the credential when it connects, as the library may.
#include "tests/doubles/plain_device_manager.h"

[[maybe_unused]] static const bool kReads = plain_device_manager::readsCredential = true;
