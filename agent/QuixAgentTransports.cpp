#include <algorithm>
#include <cstdint>

#include "agent/QuixAgentParticipant.h"

namespace {

int32_t saturate(int64_t value) {
    return static_cast<int32_t>(std::min<int64_t>(value, INT32_MAX));
}

bool write_back(const QuixAgent& agent, const QuixAgentMiddleware& middleware,
                DDSDomainParticipant* participant, const QUIXTransport_Property& property) {
    agent.output().flush(); // before what the middleware logs
    const DDS_ReturnCode_t result = middleware.set_transport_property(participant, property);
    return result == DDS_RETCODE_OK ||
           agent.output().fail("QUIXAgent: set_builtin_transport_property error %d\n", result);
}

bool adjust_udp(const QuixAgent& agent, const QuixAgentMiddleware& middleware,
                DDSDomainParticipant* participant, DDS_TransportBuiltinKind kind, const char* name) {
    if (agent.discoveryTTL == -1 && agent.msgMaxSize < 1)
        return true;
    QUIXTransport_Property property(kind);
    middleware.get_transport_property(participant, property);
    if (agent.discoveryTTL != -1) {
        agent.output().print("Changing %s TTL from %d to %d\n", name, property.udp.multicast_ttl,
                             agent.discoveryTTL);
        property.udp.multicast_ttl = agent.discoveryTTL;
    }
    if (agent.msgMaxSize > 0) {
        agent.output().print("Changing %s message size max from %d to %d\n", name,
                             property.udp.message_size_max, agent.msgMaxSize);
        property.udp.message_size_max = agent.msgMaxSize;
        property.udp.send_socket_buffer_size = agent.msgMaxSize;
        property.udp.recv_socket_buffer_size = agent.msgMaxSize;
    }
    return write_back(agent, middleware, participant, property);
}

void change_receive_buffer(const QuixAgent& agent, QUIXTransport_Shmem_Property& shmem, int32_t size) {
    agent.output().print("Changing shmem receive buffer size from %d to %d\n", shmem.receive_buffer_size,
                         size);
    shmem.receive_buffer_size = size;
}

bool adjust_shmem(const QuixAgent& agent, const QuixAgentMiddleware& middleware,
                  DDSDomainParticipant* participant) {
    if (agent.msgMaxSize <= 0 && agent.shmRcvSize < 1)
        return true;
    QUIXTransport_Property property(DDS_TRANSPORT_KIND_SHMEM);
    middleware.get_transport_property(participant, property);
    QUIXTransport_Shmem_Property& shmem = property.shmem;
    if (agent.msgMaxSize > 0) {
        agent.output().print("Changing shmem message size max from %d to %d\n", shmem.message_size_max,
                             agent.msgMaxSize);
        shmem.message_size_max = agent.msgMaxSize;
        // Without a size of its own the buffer must at least hold two messages.
        const int64_t needed = 2 * static_cast<int64_t>(agent.msgMaxSize);
        if (agent.shmRcvSize <= 0 && shmem.receive_buffer_size < needed)
            change_receive_buffer(agent, shmem, saturate(needed));
    }
    if (agent.shmRcvSize > 0) {
        change_receive_buffer(agent, shmem, agent.shmRcvSize);
        const int64_t messages = agent.shmRcvSize / std::max(shmem.message_size_max, 1);
        const int32_t count = saturate(messages * 2 + 2);
        if (shmem.received_message_count_max < count) {
            agent.output().print("Changing shmem received message count max from %d to %d\n",
                                 shmem.received_message_count_max, count);
            shmem.received_message_count_max = count;
        }
    }
    return write_back(agent, middleware, participant, property);
}

} // namespace

bool QuixAgentTransports_adjust(const QuixAgent& agent, const QuixAgentMiddleware& middleware,
                                DDSDomainParticipant* participant) {
    // UDPv4 and shared memory are set up whatever the mask selects, UDPv6 only when it is selected.
    if (!adjust_udp(agent, middleware, participant, DDS_TRANSPORT_KIND_UDPv4, "UDPv4"))
        return false;
    if (!adjust_shmem(agent, middleware, participant))
        return false;
    if ((agent.transportMask & DDS_TRANSPORTBUILTIN_UDPv6) == 0)
        return true;
    return adjust_udp(agent, middleware, participant, DDS_TRANSPORT_KIND_UDPv6, "UDPv6");
}
