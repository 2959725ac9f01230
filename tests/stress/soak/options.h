// How long the load lasts and how heavy it is.
#pragma once

namespace soak {

struct Options {
    unsigned minutes = 10;
    unsigned clients = 16;
    unsigned jobEvery =
        10;  // seconds; 0: no jobs. Each launch keeps every caller waiting a second.
    unsigned seed = 1;
};

// Ends the process with status 2 when it does not understand them.
Options readOptions(int argc, char** argv);

}  // namespace soak
