#pragma once

// A remote participant with one writer that exists as packets only: what it announces, and its samples.

#include <string>
#include <vector>

#include "rtps/wire/discovery_data.h"
#include "rtps/wire/message.h"

namespace ferret::bench {

class WriterStandIn {
  public:
    /// Those with other numbers (from 1 on) are other writers of the same participant.
    WriterStandIn(std::string topic, std::string type, bool keyed, uint32_t number = 1);

    /// What a participant has to receive to match readers of the topic; writers of lower numbers come first.
    std::vector<meridian::rtps::ByteBuffer> announcements() const;
    /// The next samples of this writer in packets of `per_packet`, each with its time stamp, as a batching
    /// writer sends them. With `key_hash` the samples carry one inline.
    std::vector<meridian::rtps::ByteBuffer> samples(size_t packets, size_t per_packet,
                                                    meridian::rtps::ByteView payload, bool key_hash);

  private:
    meridian::rtps::GuidPrefix prefix_;
    uint32_t number_;
    meridian::rtps::EntityId writer_;
    std::string topic_;
    std::string type_;
    meridian::rtps::SequenceNumber next_ = 1;
};

/// The address everything seems to come from.
meridian::rtps::Locator stand_in_locator();

/// A sample of { uint32 seq; @key uint32 keyval; octet payload[24] } in XCDR1 with its encapsulation: 32
/// bytes of data.
meridian::rtps::ByteBuffer small_sample();

} // namespace ferret::bench
