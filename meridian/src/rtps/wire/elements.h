#pragma once

// The submessage elements that messages and parameters share (OMG DDSI-RTPS 2.5, 9.3 and 9.4.2). Each read_*
// leaves the reader failed, and returns false, when the element is missing or impossible.

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/byte_writer.h"

namespace meridian::rtps {

bool read_entity_id(ByteReader& reader, EntityId& id);
bool read_guid(ByteReader& reader, Guid& guid);
bool read_sequence_number(ByteReader& reader, SequenceNumber& number);
bool read_time(ByteReader& reader, WireTime& time);
bool read_locator(ByteReader& reader, Locator& locator);
/// LocatorList of a message: a count and that many locators, appended to the list.
bool read_locator_list(ByteReader& reader, LocatorList& list);
/// Refused with more than 256 bits, with a base below lowest_base, or when the set reaches beyond the highest
/// number. Bits beyond num_bits are cleared.
bool read_sequence_number_set(ByteReader& reader, SequenceNumberSet& set, SequenceNumber lowest_base);
bool read_fragment_number_set(ByteReader& reader, FragmentNumberSet& set);

void write_entity_id(ByteWriter& writer, EntityId id);
void write_guid(ByteWriter& writer, const Guid& guid);
void write_sequence_number(ByteWriter& writer, SequenceNumber number);
void write_time(ByteWriter& writer, WireTime time);
void write_locator(ByteWriter& writer, const Locator& locator);
void write_sequence_number_set(ByteWriter& writer, const SequenceNumberSet& set);
void write_fragment_number_set(ByteWriter& writer, const FragmentNumberSet& set);

} // namespace meridian::rtps
