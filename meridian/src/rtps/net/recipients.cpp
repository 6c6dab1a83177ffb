#include "rtps/net/recipients.h"

#include <algorithm>

namespace meridian::rtps::net {

void Recipients::remove(const Participant& participant) {
    all_.erase(std::remove_if(all_.begin(), all_.end(),
                              [&](const Entry& entry) { return entry.participant == &participant; }),
               all_.end());
}

ReadStatus Recipients::select(ByteView datagram) {
    for (Entry& entry : all_)
        entry.selected = false;
    return read_message(datagram, *this);
}

void Recipients::select(const GuidPrefix& destination, EntityId local, const Guid& remote) {
    for (Entry& entry : all_)
        entry.selected = entry.selected || entry.participant->may_be_for(destination, local, remote);
}

void Recipients::on_data(const MessageContext& context, const Data& data) {
    select(context.destination, data.reader, {context.source, data.writer});
}

void Recipients::on_data_frag(const MessageContext& context, const DataFrag& fragment) {
    select(context.destination, fragment.reader, {context.source, fragment.writer});
}

void Recipients::on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) {
    select(context.destination, heartbeat.reader, {context.source, heartbeat.writer});
}

void Recipients::on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& heartbeat) {
    select(context.destination, heartbeat.reader, {context.source, heartbeat.writer});
}

void Recipients::on_acknack(const MessageContext& context, const AckNack& acknack) {
    select(context.destination, acknack.writer, {context.source, acknack.reader});
}

void Recipients::on_nack_frag(const MessageContext& context, const NackFrag& nack) {
    select(context.destination, nack.writer, {context.source, nack.reader});
}

void Recipients::on_gap(const MessageContext& context, const Gap& gap) {
    select(context.destination, gap.reader, {context.source, gap.writer});
}

void Recipients::on_secured(const MessageContext& context, uint8_t) {
    // What it is about cannot be read.
    select(context.destination, entity::unknown, {context.source, entity::unknown});
}

} // namespace meridian::rtps::net
