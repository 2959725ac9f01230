// The same values as transfer/reply_encoding makes, made in the plainest way: one builder, every
// element added by itself, no limits. What the fast encoders are compared with.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "transfer/records.h"
#include "transfer/reply_encoding.h"

namespace test_support {

// Floating, as the encoders' own values are.
GVariant* naiveArray(const std::vector<UsbStickInfo>& sticks);
GVariant* naiveArray(const std::vector<FileEntry>& entries);
GVariant* naiveTuple(const std::vector<UsbStickInfo>& sticks);
GVariant* naiveTuple(const std::vector<FileEntry>& entries, reply::KindWord kindWord);

// U+FFFD for each byte that is not part of a well-formed character; a zero byte is none either.
std::string naiveValidText(const std::string& bytes);

// The body of a message with the one value `body` as it goes over the wire, and how many bytes it
// takes there; a floating value is taken over.
std::string marshalledBody(GVariant* body);
std::size_t marshalledSize(GVariant* body);

}  // namespace test_support
