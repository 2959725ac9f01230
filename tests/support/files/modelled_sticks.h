// Two sticks full of odd things, and the model that goes with them.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/device/stick.h"
#include "tests/support/files/model_files.h"
#include "tests/support/files/model_service.h"

namespace test_support {

// Sticks 1 and 2 are mounted and filled, and nothing else is below "/media" to begin with. What the
// service makes in "/" counts, too, and is gone with the object.
class ModelledSticks {
public:
    explicit ModelledSticks(HostileCaller& caller);
    ~ModelledSticks();
    ModelledSticks(const ModelledSticks&) = delete;
    ModelledSticks& operator=(const ModelledSticks&) = delete;

    ModelFiles& model() { return model_; }

    // Pulls the stick, or plugs a new one in.
    void exchange(int number);
    void setReadOnly(int number, bool readOnly);

    // The two halves of pulling a stick, if it is there, for when it happens within a call.
    void pullFromMachine(int number);
    void pullFromModel(int number);

    // Whether the machine has what the model has: names, kinds, modes, contents. On failure says
    // which differ.
    testing::AssertionResult agree() const;

private:
    std::optional<Mount>& mountOf(int number);
    void plug(int number);

    HostileCaller& caller_;
    std::vector<std::string> others_;  // entries of "/"
    ModelFiles model_;
    std::array<std::optional<Mount>, 2> mounts_;
};

}  // namespace test_support
