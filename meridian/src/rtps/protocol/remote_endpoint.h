#pragma once

// The record of one endpoint of another participant. There is one per state that the endpoint announced,
// shared by all layers, and it does not change once others can see it: a new announcement makes a new record.
// Any thread may read it. What the endpoints of a participant have in common is shared by their records.

#include <cstdint>
#include <memory>

#include "platform/memory_budget.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

/// The type of a publication; the layers above say what that is.
class EndpointType;
using EndpointTypeRef = std::shared_ptr<const EndpointType>;

enum class TypeState {
    waiting, // it is being looked up; the endpoint is not visible yet
    none,    // nothing is known of it; likewise for subscriptions
    known,   // the record has it, or why there is none
};

/// The type object is kept until the type was asked for.
struct RemoteEndpoint : EndpointIdentity {
    bool is_writer = false; // the kind of its entity need not say so
    TypeState type_state = TypeState::waiting;
    std::shared_ptr<const EndpointQos> qos;             // not null
    std::shared_ptr<const LocatorList> unicast;         // not null
    std::shared_ptr<const ByteBuffer> type_information; // not null
    uint64_t announcement = 0;                          // a hash of the content
    size_t memory = 0;                                  // bytes that it keeps, about, with all that it shares
    /// They are charged for as long as the record is kept.
    MemoryShare charge{MemoryBudget::of_process()};
    WireTime timestamp = kTimeInvalid; // of the announcement
    EndpointTypeRef type;              // set where type_state is known
};
using RemoteEndpointRef = std::shared_ptr<const RemoteEndpoint>;

/// Lets records share what the endpoints of one participant have in common: equal parts of the last record of
/// each kind are used again.
class RecordMaker {
  public:
    /// The record that is made has no type. It belongs to the caller, who may change it until others see it.
    std::shared_ptr<RemoteEndpoint> make(EndpointData&& data, WireTime timestamp);

  private:
    struct Last {
        ByteBuffer encoded_qos;
        std::shared_ptr<const EndpointQos> qos;
        std::shared_ptr<const LocatorList> unicast;
        std::shared_ptr<const ByteBuffer> type_information;
    };
    Last writers_;
    Last readers_;
};

/// Equal for announcements of equal content, whatever their byte order; else different, as good as always.
uint64_t hash_of(const EndpointData& data);

} // namespace meridian::rtps
