#include "dcps/reader/reader_statuses.h"

#include <limits>

#include "dcps/endpoints/status_counters.h"
#include "discovery/conversions.h"

namespace meridian::dcps {

namespace {

void add(DDS_Long& counter, uint64_t count) {
    const auto room = static_cast<uint64_t>(std::numeric_limits<DDS_Long>::max() - counter);
    counter += static_cast<DDS_Long>(count < room ? count : room);
}

} // namespace

DDS_StatusMask ReaderStatuses::writer_matched(const rtps::Guid& writer) {
    if (!writers_.emplace(writer, true).second)
        return 0;
    count_match(matched_, true);
    matched_.last_publication_handle = discovery::to_handle(writer);
    ++liveliness_.alive_count;
    ++liveliness_.alive_count_change;
    liveliness_.last_publication_handle = matched_.last_publication_handle;
    return DDS_SUBSCRIPTION_MATCHED_STATUS | DDS_LIVELINESS_CHANGED_STATUS;
}

DDS_StatusMask ReaderStatuses::writer_unmatched(const rtps::Guid& writer) {
    const auto known = writers_.find(writer);
    if (known == writers_.end())
        return 0;
    count_match(matched_, false);
    matched_.last_publication_handle = discovery::to_handle(writer);
    liveliness_.last_publication_handle = matched_.last_publication_handle;
    DDS_Long& count = known->second ? liveliness_.alive_count : liveliness_.not_alive_count;
    DDS_Long& change = known->second ? liveliness_.alive_count_change : liveliness_.not_alive_count_change;
    --count;
    --change;
    writers_.erase(known);
    return DDS_SUBSCRIPTION_MATCHED_STATUS | DDS_LIVELINESS_CHANGED_STATUS;
}

DDS_StatusMask ReaderStatuses::writer_alive(const rtps::Guid& writer, bool alive) {
    const auto known = writers_.find(writer);
    if (known == writers_.end() || known->second == alive)
        return 0;
    known->second = alive;
    const DDS_Long up = alive ? 1 : -1;
    liveliness_.alive_count += up;
    liveliness_.alive_count_change += up;
    liveliness_.not_alive_count -= up;
    liveliness_.not_alive_count_change -= up;
    liveliness_.last_publication_handle = discovery::to_handle(writer);
    return DDS_LIVELINESS_CHANGED_STATUS;
}

DDS_StatusMask ReaderStatuses::incompatible(const std::vector<uint32_t>& policies) {
    if (policies.empty())
        return 0;
    count_incompatible(incompatible_, policies);
    return DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS;
}

DDS_StatusMask ReaderStatuses::deadline_missed(const DDS_InstanceHandle_t& instance) {
    ++deadline_.total_count;
    ++deadline_.total_count_change;
    deadline_.last_instance_handle = instance;
    return DDS_REQUESTED_DEADLINE_MISSED_STATUS;
}

DDS_StatusMask ReaderStatuses::samples_lost(uint64_t count) {
    if (count == 0)
        return 0;
    add(lost_.total_count, count);
    add(lost_.total_count_change, count);
    return DDS_SAMPLE_LOST_STATUS;
}

DDS_StatusMask ReaderStatuses::sample_rejected(DDS_SampleRejectedStatusKind reason,
                                               const DDS_InstanceHandle_t& instance) {
    add(rejected_.total_count, 1);
    add(rejected_.total_count_change, 1);
    rejected_.last_reason = reason;
    rejected_.last_instance_handle = instance;
    return DDS_SAMPLE_REJECTED_STATUS;
}

DDS_RequestedDeadlineMissedStatus ReaderStatuses::take_deadline_missed() {
    return taken(deadline_);
}

DDS_RequestedIncompatibleQosStatus ReaderStatuses::take_incompatible() {
    return taken(incompatible_);
}

DDS_LivelinessChangedStatus ReaderStatuses::take_liveliness() {
    DDS_LivelinessChangedStatus copy = liveliness_;
    liveliness_.alive_count_change = liveliness_.not_alive_count_change = 0;
    return copy;
}

DDS_SampleLostStatus ReaderStatuses::take_lost() {
    return taken(lost_);
}

DDS_SampleRejectedStatus ReaderStatuses::take_rejected() {
    return taken(rejected_);
}

DDS_SubscriptionMatchedStatus ReaderStatuses::take_matched() {
    return taken_match(matched_);
}

} // namespace meridian::dcps
