#include "rtps/net/drop_report.h"

#include <iterator>

#include "rtps/net/socket.h"

namespace meridian::rtps::net {

namespace {

/// Of each kind: more are only counted, whatever a network invents.
constexpr size_t kMostAddressesTold = 16;

constexpr const char* kTotals[] = {
    "datagrams were larger than the receive buffer and dropped",
    "datagrams were not RTPS and dropped",
    "datagrams were malformed and dropped, from the first fault on",
    "secured submessages were not read",
    "calls to receive failed",
};

/// Datagrams of other protocols stray here on healthy networks too; secured ones are told of with their
/// participant.
bool is_error(DropReport::Kind kind) {
    return kind == DropReport::Kind::truncated || kind == DropReport::Kind::malformed;
}

} // namespace

DropReport::DropReport(size_t receive_buffer_size, Messages messages)
    : receive_buffer_size_(receive_buffer_size), messages_(std::move(messages)) {}

void DropReport::note(Kind kind, const Locator& source) {
    ++counts_[index(kind)];
    auto& told = told_[index(kind)];
    // Messages are sent that cannot be seen here at all.
    const bool is_news = kind == Kind::truncated && told.empty();
    if (told.size() < kMostAddressesTold && told.insert(source.address).second)
        (is_news ? messages_.error : messages_.warning)(first_of(kind, source));
}

void DropReport::note_receive_error(int error_number) {
    ++counts_[index(Kind::receive_error)];
    if (errors_told_.insert(error_number).second)
        messages_.warning(describe_error("cannot receive", error_number));
}

std::string DropReport::first_of(Kind kind, const Locator& source) const {
    const std::string from = " from " + to_string(source);
    switch (kind) {
        case Kind::truncated:
            return "dropped a datagram" + from + ": it is larger than the receive buffer of " +
                   std::to_string(receive_buffer_size_) +
                   " bytes (-msgMaxSize); what comes in such datagrams is not seen";
        case Kind::not_rtps:
            return "dropped a datagram" + from + ": it is not RTPS";
        default:
            return "dropped a datagram" + from + ", from its first malformed submessage on";
    }
}

void DropReport::tell_totals() {
    static_assert(std::size(kTotals) == static_cast<size_t>(Kind::count));
    for (size_t kind = 0; kind < counts_.size(); ++kind) {
        const auto& tell = is_error(static_cast<Kind>(kind)) ? messages_.error : messages_.warning;
        if (counts_[kind] != totals_told_[kind])
            tell(std::to_string(counts_[kind]) + " " + kTotals[kind]);
        totals_told_[kind] = counts_[kind];
    }
}

} // namespace meridian::rtps::net
