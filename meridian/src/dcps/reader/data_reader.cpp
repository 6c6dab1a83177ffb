// Statuses of readers that match nothing.

#include "meridian/data_reader.h"

namespace {

template <typename Status>
DDS_ReturnCode_t nothing(Status& status) {
    status = Status{};
    return DDS_RETCODE_OK;
}

} // namespace

DDS_ReturnCode_t DDSDataReader::get_requested_deadline_missed_status(
    DDS_RequestedDeadlineMissedStatus& status) {
    return nothing(status);
}
DDS_ReturnCode_t DDSDataReader::get_requested_incompatible_qos_status(
    DDS_RequestedIncompatibleQosStatus& status) {
    return nothing(status);
}
DDS_ReturnCode_t DDSDataReader::get_liveliness_changed_status(DDS_LivelinessChangedStatus& status) {
    return nothing(status);
}
DDS_ReturnCode_t DDSDataReader::get_sample_lost_status(DDS_SampleLostStatus& status) {
    return nothing(status);
}
DDS_ReturnCode_t DDSDataReader::get_sample_rejected_status(DDS_SampleRejectedStatus& status) {
    return nothing(status);
}
DDS_ReturnCode_t DDSDataReader::get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) {
    return nothing(status);
}
DDS_ReturnCode_t DDSDataReader::get_matched_publications(DDS_InstanceHandleSeq& publications) {
    publications.length(0);
    return DDS_RETCODE_OK;
}
