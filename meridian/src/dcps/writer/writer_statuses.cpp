#include "dcps/writer/writer_statuses.h"

#include "dcps/endpoints/status_counters.h"
#include "discovery/conversions.h"

namespace meridian::dcps {

DDS_StatusMask WriterStatuses::reader_matched(const rtps::Guid& reader) {
    if (!readers_.insert(reader).second)
        return 0;
    count_match(matched_, true);
    matched_.last_subscription_handle = discovery::to_handle(reader);
    return DDS_PUBLICATION_MATCHED_STATUS;
}

DDS_StatusMask WriterStatuses::reader_unmatched(const rtps::Guid& reader) {
    if (readers_.erase(reader) == 0)
        return 0;
    count_match(matched_, false);
    matched_.last_subscription_handle = discovery::to_handle(reader);
    return DDS_PUBLICATION_MATCHED_STATUS;
}

DDS_StatusMask WriterStatuses::incompatible(const std::vector<uint32_t>& policies) {
    if (policies.empty())
        return 0;
    count_incompatible(incompatible_, policies);
    return DDS_OFFERED_INCOMPATIBLE_QOS_STATUS;
}

DDS_PublicationMatchedStatus WriterStatuses::take_matched() {
    return taken_match(matched_);
}

DDS_OfferedIncompatibleQosStatus WriterStatuses::take_incompatible() {
    return taken(incompatible_);
}

} // namespace meridian::dcps
