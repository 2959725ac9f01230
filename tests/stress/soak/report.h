// What the service takes up, what its calls take, and how both are printed.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "tests/stress/soak/client.h"

namespace soak {

struct Sample {
    long anonymous = 0;  // KiB
    long addresses = 0;  // KiB
    std::size_t descriptors = 0;
    int threads = 0;
};

Sample sampleOf(pid_t pid);

// The head of the table of samples, and a line of it.
void printSampleHead();
void printSample(const std::string& when, std::size_t calls, unsigned jobs, const Sample& sample);

// One line for each method.
void printDurations(Durations durations);

}  // namespace soak
