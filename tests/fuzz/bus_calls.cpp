// What is called over the bus, and with what.
#include "tests/fuzz/bus_calls.h"

#include <gio/gio.h>

#include <cstddef>

namespace fuzz {
namespace {

std::string without(std::string text, const std::string& part) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part)) {
        text.erase(at, part.size());
    }
    return text;
}

// A search walks all that it can reach: from the root of the file system on, through /proc, that
// takes for ever. One ".." leads to the sticks' parent at most.
bool searches(const Method& method) {
    const std::string name = method.name;
    return name.rfind("GetDirectoryIndexFor", 0) == 0 || name == "GetBackupFilesList" ||
           name == "GetUpdateFilesList";
}

void keepNearTheSticks(std::array<std::string, 2>& texts) {
    bool climbed = false;
    for (std::string& text : texts) {
        for (std::size_t at = text.find(".."); at != std::string::npos; at = text.find("..", at)) {
            if (climbed) {
                text.erase(at, 2);
            } else {
                climbed = true;
                at += 2;
            }
        }
    }
}

}  // namespace

Arguments::Arguments(Random& random, const Method& method, bool mayStartJob)
    : random_(random), method_(method) {
    chooseTexts(mayStartJob);
}

GVariant* Arguments::build() {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    std::size_t text = 0;
    for (const char* type = method_.in; *type != '\0'; ++type) {
        g_variant_builder_add_value(&builder, argument(*type, text));
    }
    return g_variant_builder_end(&builder);
}

// A job that must not start has a path that none starts with, or a stick that is not there.
void Arguments::chooseTexts(bool mayStartJob) {
    texts_ = {hostileMount(random_), hostilePath(random_)};
    if (searches(method_)) {
        keepNearTheSticks(texts_);
    }
    if (!method_.startsJob) {
        return;
    }
    if (mayStartJob) {
        texts_ = {"USB_X60.1", "../USB_X60.1/" + hostilePath(random_) + ".psb"};
    } else if (upTo(random_, 1) == 0) {
        texts_[0] = "USB_X60.9/" + texts_[0];
    } else {
        texts_[1] = without(without(texts_[1], ".psb"), ".fwf");
    }
}

GVariant* Arguments::argument(char type, std::size_t& text) {
    switch (type) {
        case 's':
            return g_variant_new_string(texts_.at(text++).c_str());
        case 'u':
            return g_variant_new_uint32(
                static_cast<guint32>(upTo(random_, 3) == 0 ? random_() : upTo(random_, 4)));
        case 'i':
            return g_variant_new_string(method_.interface == std::string(kProperties) ? kTransfer
                                                                                      : "");
        default:
            return g_variant_new_string(upTo(random_, 1) == 0 ? "organizationName"
                                                              : "organizationDomain");
    }
}

GVariant* wrongArguments(Random& random) {
    const std::string text = hostileText(random);
    switch (upTo(random, 3)) {
        case 0:
            return g_variant_new("(xs)", static_cast<gint64>(random()), text.c_str());
        case 1:
            return g_variant_new("(ssss)", text.c_str(), "", "", "");
        case 2:
            return g_variant_new("(v)", g_variant_new_string(text.c_str()));
        default:
            return g_variant_new("(a{sv})", nullptr);
    }
}

}  // namespace fuzz
