// Archives that the simulator would never write, made byte by byte from the documented format.
#pragma once

#include <string>
#include <vector>

struct CraftedMember {
    enum class Type { file, directory, symbolicLink, hardLink };
    std::string name;
    std::string bytes;  // the target of a link
    Type type = Type::file;
};

// A manifest that describes these members truly.
std::string craftedManifest(const std::string& kind, const std::vector<CraftedMember>& members,
                            const std::string& firmware = "9.0");

enum class Compression { zstd, none };

// Writes the members as they come, a manifest included only if it is one of them, without a seal.
void writeUnsealed(const std::string& path, const std::vector<CraftedMember>& members,
                   Compression compression = Compression::zstd);

// `bytes` with the seal of a whole file.
std::string sealed(const std::string& bytes);

// Writes the members in this order as a sealed file.
void writeCrafted(const std::string& path, const std::vector<CraftedMember>& members,
                  Compression compression = Compression::zstd);

// A sealed file with a true manifest in front of the members.
void writeWithManifest(const std::string& path, const std::string& kind,
                       const std::vector<CraftedMember>& members);
