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

} // namespace

DropReport::DropReport(size_t receive_buffer_size, Warning warning)
    : receive_buffer_size_(receive_buffer_size), warning_(std::move(warning)) {}

void DropReport::note(Kind kind, const Locator& source) {
    ++counts_[index(kind)];
    auto& told = told_[index(kind)];
    if (told.size() < kMostAddressesTold && told.insert(source.address).second)
        warning_(first_of(kind, source));
}

void DropReport::note_receive_error(int error_number) {
    ++counts_[index(Kind::receive_error)];
    if (errors_told_.insert(error_number).second)
        warning_(describe_error("cannot receive", error_number));
}

std::string DropReport::first_of(Kind kind, const Locator& source) const {
    const std::string from = " from " + to_string(source);
    switch (kind) {
        case Kind::truncated:
            return "dropped a datagram" + from + ": it is larger than the receive buffer of " +
                   std::to_string(receive_buffer_size_) + " bytes";
        case Kind::not_rtps:
            return "dropped a datagram" + from + ": it is not RTPS";
        default:
            return "dropped a datagram" + from + ", from its first malformed submessage on";
    }
}

void DropReport::tell_totals() {
    static_assert(std::size(kTotals) == static_cast<size_t>(Kind::count));
    for (size_t kind = 0; kind < counts_.size(); ++kind) {
        if (counts_[kind] != totals_told_[kind])
            warning_(std::to_string(counts_[kind]) + " " + kTotals[kind]);
        totals_told_[kind] = counts_[kind];
    }
}

} // namespace meridian::rtps::net
