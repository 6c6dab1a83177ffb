// What is said to who looks for types: announcements with type information, replies, times and farewells, in
// any order. Each byte of the input chooses the next event. Every publication that waits gets one outcome,
// within the time that was set.

#include <algorithm>
#include <cstdlib>
#include <set>

#include "input.h"
#include "types/lookup/type_resolver.h"

using namespace meridian;
using namespace meridian::types;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

class Run {
  public:
    explicit Run(fuzz::Input input) : input_(input), resolver_(TypeResolver::Settings()) {}

    void run() {
        while (input_.size() != 0) {
            const uint8_t event = input_.next();
            if (event < 64)
                announce(event);
            else if (event < 160)
                reply();
            else if (event < 224)
                pass(std::chrono::milliseconds(8 * (event - 160)));
            else
                leave(event & 3u);
            take_outcomes();
        }
        pass(std::chrono::seconds(10));
        take_outcomes();
        require(waiting_.empty());
        require(resolver_.next_deadline() == rtps::kNever);
    }

  private:
    static rtps::GuidPrefix participant(unsigned number) {
        rtps::GuidPrefix prefix;
        prefix.bytes[0] = static_cast<uint8_t>(number + 1);
        return prefix;
    }

    void announce(uint8_t event) {
        rtps::EndpointData publication;
        publication.participant = participant(event & 3u);
        publication.guid = {publication.participant,
                            rtps::EntityId{static_cast<uint32_t>(event >> 2) << 8 | 3}};
        publication.type_name = "T";
        const rtps::ByteView information = input_.take(input_.next() * 2u);
        publication.type_information.assign(information.begin(), information.end());
        publication.raw_endianness = (event & 32) != 0 ? rtps::Endianness::big : rtps::Endianness::little;
        if (resolver_.resolve(publication, (event & 16) == 0, now_))
            waiting_.erase(publication.guid);
        else
            waiting_.insert(publication.guid);
    }
    void reply() {
        TypeLookupReply reply;
        const size_t size = input_.next();
        if (decode(input_.take(size << 8 | input_.next()), reply))
            resolver_.take(reply, now_);
    }
    void pass(rtps::Duration time) {
        const rtps::MonotonicTime until = now_ + time;
        for (unsigned turns = 0; resolver_.next_deadline() <= until; ++turns) {
            require(turns < 100000);
            now_ = std::max(now_, resolver_.next_deadline());
            resolver_.on_timer(now_);
        }
        now_ = until;
    }
    void leave(unsigned number) { resolver_.participant_gone(participant(number)); }

    void take_outcomes() {
        for (const TypeResolver::Outcome& outcome : resolver_.take_outcomes())
            require(waiting_.erase(outcome.endpoint) == 1);
        for (const TypeResolver::Request& request : resolver_.take_requests()) {
            require(!request.hashes.empty());
            TypeLookupRequest message;
            message.asked = request.asked;
            message.hashes = request.hashes;
            require(!encode(message).empty());
        }
    }

    fuzz::Input input_;
    TypeResolver resolver_;
    std::set<rtps::Guid> waiting_;
    rtps::MonotonicTime now_{0};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(fuzz::Input(data, size)).run();
    return 0;
}
