// Texts that a client should not send, and some that he may.
#pragma once

#include <random>
#include <string>

namespace fuzz {

using Random = std::mt19937_64;

// From 0 to `most`.
std::size_t upTo(Random& random, std::size_t most);

// Valid UTF-8 without a zero, as the bus demands. Now and then a megabyte.
std::string hostileText(Random& random);

// A relative path: parts of names that exist, "..", hostile ones.
std::string hostilePath(Random& random);

// Names of sticks that are there, that are not, and paths.
std::string hostileMount(Random& random);

}  // namespace fuzz
