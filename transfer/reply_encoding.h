// Turning the manager's records into the values that go over the bus. Pure: no bus, no manager, any
// thread.
//
// A list is flat: each record is a run of four elements, never a structure of its own. A string
// that is not UTF-8 goes out with U+FFFD in place of each invalid byte, since the bus carries
// nothing else. Values are floating: the reply that they are put into takes them over.
#pragma once

#include <glib.h>

#include <cstddef>
#include <string>
#include <vector>

#include "transfer/records.h"

namespace reply {

// A list of files as it goes out, cut after a whole record where the bus cannot carry more.
struct EncodedFiles {
    GVariant* value;
    std::size_t records;  // how many of the records are in it
};

// Whether a file's kind goes out as a 32-bit unsigned or signed value. Kept: clients rely on the
// difference.
enum class KindWord { Unsigned, Signed };

// The most records that a tuple holds: its signature, of at most 255 bytes, spells out every
// element.
inline constexpr std::size_t kMaxTupleRecords = 63;

// The most bytes of an array in a reply: the system bus refuses messages of more than 32 MiB, of
// which 1 KiB is left for the header.
inline constexpr std::size_t kMaxArrayBytes = 32U * 1024 * 1024 - 1024;

// An "av" of (s, s, t, t) and of (u, s, t, s) runs, which is empty when the list is empty. The
// marshalled array takes at most `maxBytes`.
GVariant* stickArray(const std::vector<UsbStickInfo>& sticks);
EncodedFiles fileArray(const std::vector<FileEntry>& entries,
                       std::size_t maxBytes = kMaxArrayBytes);

// One tuple of (s, s, t, t, ...) and of (u or i, s, t, s, ...) runs. When the list is empty, it
// holds one empty record as a placeholder, whose kind is always unsigned.
GVariant* stickTuple(const std::vector<UsbStickInfo>& sticks);
EncodedFiles fileTuple(const std::vector<FileEntry>& entries, KindWord kindWord);

// `bytes` up to a zero byte, with U+FFFD in place of each byte that is not UTF-8.
std::string validString(const std::string& bytes);

}  // namespace reply
