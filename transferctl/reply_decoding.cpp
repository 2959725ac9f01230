// The service's flat lists as records, whatever a reply may hold.
#include "transferctl/reply_decoding.h"

#include "transferctl/failure.h"

namespace transferctl {
namespace {

constexpr std::size_t kElementsPerRecord = 4;

[[noreturn]] void notUnderstood() {
    throw Failure(ExitStatus::kNoService, "the service's reply is not what its interface promises");
}

std::size_t recordsIn(GVariant* list) {
    if (list == nullptr || g_variant_is_of_type(list, G_VARIANT_TYPE("av")) == FALSE ||
        g_variant_n_children(list) % kElementsPerRecord != 0) {
        notUnderstood();
    }
    return g_variant_n_children(list) / kElementsPerRecord;
}

// One element out of its box.
class Element {
public:
    Element(GVariant* list, std::size_t index, const char* type) {
        g_variant_get_child(list, index, "v", &value_);
        if (g_variant_is_of_type(value_, G_VARIANT_TYPE(type)) == FALSE) {
            g_variant_unref(value_);
            notUnderstood();
        }
    }
    ~Element() { g_variant_unref(value_); }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    GVariant* get() const { return value_; }

private:
    GVariant* value_ = nullptr;
};

std::string textAt(GVariant* list, std::size_t index) {
    return g_variant_get_string(Element(list, index, "s").get(), nullptr);
}

std::uint64_t bytesAt(GVariant* list, std::size_t index) {
    return g_variant_get_uint64(Element(list, index, "t").get());
}

std::uint32_t kindAt(GVariant* list, std::size_t index) {
    return g_variant_get_uint32(Element(list, index, "u").get());
}

}  // namespace

std::vector<Stick> decodeSticks(GVariant* list) {
    std::vector<Stick> sticks(recordsIn(list));
    std::size_t at = 0;
    for (Stick& stick : sticks) {
        stick = {textAt(list, at), bytesAt(list, at + 2), bytesAt(list, at + 3)};
        textAt(list, at + 1);  // the mount name, the same text again
        at += kElementsPerRecord;
    }
    return sticks;
}

std::vector<File> decodeFiles(GVariant* list, const std::string& stick) {
    std::vector<File> files(recordsIn(list));
    std::size_t at = 0;
    for (File& file : files) {
        const std::string location = textAt(list, at + 3);
        const StickPath directory{stick, location == "/" ? "" : location};
        file.isDirectory = kindAt(list, at) == 0;
        file.name = textAt(list, at + 1);
        file.size = bytesAt(list, at + 2);
        file.place = directory.child(file.name);
        at += kElementsPerRecord;
    }
    return files;
}

}  // namespace transferctl
