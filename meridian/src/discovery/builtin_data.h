#pragma once

// What participants and endpoints announced of themselves, as the records of the builtin topics. Pure
// functions; the records own everything they hold.

#include "meridian/builtin_topics.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::discovery {

/// The participant's partitions come from its announced properties. `domain_id` counts where the participant
/// announces none.
DDS_ParticipantBuiltinTopicData to_participant_data(const rtps::ParticipantData& data, uint32_t domain_id);
/// `data` must be of a writer.
DDS_PublicationBuiltinTopicData to_publication_data(const rtps::EndpointData& data);
/// `data` must be of a reader.
DDS_SubscriptionBuiltinTopicData to_subscription_data(const rtps::EndpointData& data);

/// The GUID of the participant behind an endpoint or a participant.
rtps::Guid participant_guid(const rtps::GuidPrefix& prefix);

} // namespace meridian::discovery
