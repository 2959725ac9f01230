// Turning the manager's records into the values that go over the bus. Pure: no bus, no manager, any
// thread.
//
// A list is flat: each record is a run of four elements, never a structure of its own. Text that is
// not UTF-8 goes out with U+FFFD in place of each invalid byte, since the bus carries nothing else.
#pragma once

#include <glib.h>

#include <cstddef>
#include <string>
#include <vector>

#include "transfer/records.h"

namespace reply {

// A list as it goes out. A list longer than the bus can carry is cut after a whole record.
struct EncodedList {
    GVariant* value;  // floating: the reply that it is put into takes it over
    std::size_t records;  // how many of the records are in it
};

// Whether a file's kind goes out as a 32-bit unsigned or signed value. Kept: clients rely on the
// difference. The values are the characters of the types.
enum class KindWord : char { Unsigned = 'u', Signed = 'i' };

// The most records that a tuple holds: its signature, of at most 255 bytes, spells out every
// element.
inline constexpr std::size_t kMaxTupleRecords = 63;

// The most bytes of an array in a reply: the system bus refuses messages of more than 32 MiB, of
// which 1 KiB is left for the header.
inline constexpr std::size_t kMaxArrayBytes = 32U * 1024 * 1024 - 1024;

// An "av" of (s, s, t, t) and of (u, s, t, s) runs; empty without records. `maxBytes` bounds the
// marshalled size of the array.
EncodedList stickArray(const std::vector<UsbStickInfo>& sticks);
EncodedList fileArray(const std::vector<FileEntry>& entries, std::size_t maxBytes = kMaxArrayBytes);

// One tuple of (s, s, t, t, ...) and of (u or i, s, t, s, ...) runs; a placeholder of one empty
// record, its kind always unsigned, without records.
EncodedList stickTuple(const std::vector<UsbStickInfo>& sticks);
EncodedList fileTuple(const std::vector<FileEntry>& entries, KindWord kindWord);

// `bytes` with each invalid byte replaced by U+FFFD.
std::string validText(const std::string& bytes);

}  // namespace reply
