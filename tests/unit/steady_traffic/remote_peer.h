#pragma once

// A remote participant that exists as datagrams only, sent through a real socket. It hears nothing, so it
// does not repeat what is lost: the caller sends no faster than is taken.

#include <cstdint>
#include <string>

#include "rtps/wire/discovery_data.h"
#include "rtps/wire/message.h"

namespace meridian::test {

class RemotePeer {
  public:
    RemotePeer();
    ~RemotePeer();
    RemotePeer(const RemotePeer&) = delete;
    RemotePeer& operator=(const RemotePeer&) = delete;

    /// Makes the participant known to those of domain 0.
    void announce();
    /// Announces a reliable writer; `entity` as in writer_entity.
    void announce_writer(rtps::EntityId entity, const std::string& topic, const std::string& type);
    /// Tells the readers what there is: first and last number of the writer.
    void heartbeat(rtps::EntityId entity, rtps::SequenceNumber first, rtps::SequenceNumber last);
    void write(rtps::EntityId entity, rtps::SequenceNumber number, rtps::ByteView payload,
               rtps::ByteView inline_qos);

    static rtps::EntityId writer_entity(uint32_t number, bool keyed) {
        return {number << 8 | (keyed ? rtps::kUserWriterWithKey : rtps::kUserWriterNoKey)};
    }

  private:
    void send(const rtps::MessageWriter& message, bool discovery);

    int socket_;
    rtps::GuidPrefix prefix_;
    rtps::SequenceNumber publications_ = 0;
    rtps::Count heartbeats_ = 0;
};

} // namespace meridian::test
