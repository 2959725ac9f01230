// Root's power to ignore file modes, laid down for a while.
#pragma once

namespace test_support {

// While it exists, file modes count for this thread although it runs as root. Throws
// std::system_error when the power cannot be laid down.
class DroppedPowers {
public:
    DroppedPowers();
    ~DroppedPowers();
    DroppedPowers(const DroppedPowers&) = delete;
    DroppedPowers& operator=(const DroppedPowers&) = delete;
};

}  // namespace test_support
