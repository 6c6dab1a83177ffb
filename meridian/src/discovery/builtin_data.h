#pragma once

// What participants and endpoints announced of themselves, as the records of the builtin topics. Pure
// functions; the records own everything they hold.

#include "meridian/builtin_topics.h"
#include "rtps/protocol/remote_endpoint.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::discovery {

/// The participant's partitions come from its announced properties. `domain_id` counts where the participant
/// announces none.
DDS_ParticipantBuiltinTopicData to_participant_data(const rtps::ParticipantData& data, uint32_t domain_id);
/// The record of a writer, or of a reader.
void fill(const rtps::RemoteEndpoint& endpoint, DDS_PublicationBuiltinTopicData& out);
void fill(const rtps::RemoteEndpoint& endpoint, DDS_SubscriptionBuiltinTopicData& out);
/// The keys alone, as for an endpoint that is gone.
void fill_keys(const rtps::RemoteEndpoint& endpoint, DDS_EndpointBuiltinTopicData& out);

/// The GUID of the participant behind an endpoint or a participant.
rtps::Guid participant_guid(const rtps::GuidPrefix& prefix);

} // namespace meridian::discovery
