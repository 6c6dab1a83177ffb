#include "dcps/reader/reader_statuses.h"

#include <limits>

namespace meridian::dcps {

namespace {

void add(DDS_Long& counter, uint64_t count) {
    const auto room = static_cast<uint64_t>(std::numeric_limits<DDS_Long>::max() - counter);
    counter += static_cast<DDS_Long>(count < room ? count : room);
}

} // namespace

void ReaderStatuses::count_alive(const rtps::Guid& writer, DDS_Long alive, DDS_Long not_alive) {
    auto& liveliness = of<DDS_LivelinessChangedStatus>();
    liveliness.alive_count += alive;
    liveliness.alive_count_change += alive;
    liveliness.not_alive_count += not_alive;
    liveliness.not_alive_count_change += not_alive;
    liveliness.last_publication_handle = discovery::to_handle(writer);
}

DDS_StatusMask ReaderStatuses::writer_matched(const rtps::Guid& writer) {
    if (!matched(writer))
        return 0;
    count_alive(writer, 1, 0);
    return DDS_SUBSCRIPTION_MATCHED_STATUS | DDS_LIVELINESS_CHANGED_STATUS;
}

DDS_StatusMask ReaderStatuses::writer_unmatched(const rtps::Guid& writer) {
    const auto known = remotes_.find(writer);
    if (known == remotes_.end())
        return 0;
    const bool was_alive = known->second;
    unmatched(writer);
    count_alive(writer, was_alive ? -1 : 0, was_alive ? 0 : -1);
    return DDS_SUBSCRIPTION_MATCHED_STATUS | DDS_LIVELINESS_CHANGED_STATUS;
}

DDS_StatusMask ReaderStatuses::writer_alive(const rtps::Guid& writer, bool alive) {
    const auto known = remotes_.find(writer);
    if (known == remotes_.end() || known->second == alive)
        return 0;
    known->second = alive;
    count_alive(writer, alive ? 1 : -1, alive ? -1 : 1);
    return DDS_LIVELINESS_CHANGED_STATUS;
}

DDS_StatusMask ReaderStatuses::deadline_missed(const DDS_InstanceHandle_t& instance) {
    auto& deadline = of<DDS_RequestedDeadlineMissedStatus>();
    ++deadline.total_count;
    ++deadline.total_count_change;
    deadline.last_instance_handle = instance;
    return DDS_REQUESTED_DEADLINE_MISSED_STATUS;
}

DDS_StatusMask ReaderStatuses::samples_lost(uint64_t count) {
    if (count == 0)
        return 0;
    add(of<DDS_SampleLostStatus>().total_count, count);
    add(of<DDS_SampleLostStatus>().total_count_change, count);
    return DDS_SAMPLE_LOST_STATUS;
}

DDS_StatusMask ReaderStatuses::sample_rejected(DDS_SampleRejectedStatusKind reason,
                                               const DDS_InstanceHandle_t& instance) {
    auto& rejected = of<DDS_SampleRejectedStatus>();
    add(rejected.total_count, 1);
    add(rejected.total_count_change, 1);
    rejected.last_reason = reason;
    rejected.last_instance_handle = instance;
    return DDS_SAMPLE_REJECTED_STATUS;
}

DDS_StatusMask ReaderStatuses::take(const DDSReaderStatus& status) {
    constexpr DDS_StatusMask kBits[] = {
        DDS_REQUESTED_DEADLINE_MISSED_STATUS, DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS,
        DDS_LIVELINESS_CHANGED_STATUS,        DDS_SAMPLE_LOST_STATUS,
        DDS_SAMPLE_REJECTED_STATUS,           DDS_SUBSCRIPTION_MATCHED_STATUS};
    std::visit([this](auto* out) { *out = EndpointStatuses::take<std::decay_t<decltype(*out)>>(); }, status);
    return kBits[status.index()];
}

} // namespace meridian::dcps
