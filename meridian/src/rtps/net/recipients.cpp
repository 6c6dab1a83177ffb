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

bool Recipients::wants(const MessageContext& context, EntityId to, EntityId from) {
    const Guid remote{context.source, from};
    for (Entry& entry : all_)
        entry.selected = entry.selected || entry.participant->may_be_for(context.destination, to, remote);
    return false;
}

void Recipients::on_secured(const MessageContext& context, uint8_t) {
    wants(context, entity::unknown, entity::unknown); // what it is about cannot be read
}

} // namespace meridian::rtps::net
