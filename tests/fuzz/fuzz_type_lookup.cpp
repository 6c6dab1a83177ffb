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
                reply(event - 64u);
            else if (event < 224)
                pass(std::chrono::milliseconds(8 * (event - 160)));
            else if (event < 252)
                resolver_.participant_gone(participant(event & 3u), now_, event >> 2 & 1u);
            else
                end(event & 1u);
            take_outcomes();
        }
        pass(std::chrono::minutes(10)); // nothing is remembered for longer
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
        publication.guid = {participant(event & 3u),
                            rtps::EntityId{static_cast<uint32_t>(event >> 2) << 8 | 3}};
        publication.type_name = "T";
        const rtps::ByteView information = input_.take(input_.next() * 2u);
        publication.type_information.assign(information.begin(), information.end());
        if (information.empty()) { // then it may announce its type whole
            const rtps::ByteView object = input_.take(input_.next() * 2u);
            publication.type_object.assign(object.begin(), object.end());
        }
        publication.raw_endianness = (event & 32) != 0 ? rtps::Endianness::big : rtps::Endianness::little;
        const TypeResolver::Asker asker = event >> 3 & 1u;
        if (resolver_.resolve(*rtps::RecordMaker().make(rtps::EndpointData(publication), {}),
                              (event & 16) == 0, now_, asker))
            waiting_.erase({publication.guid, asker});
        else
            waiting_.insert({publication.guid, asker});
    }
    /// To one of the first requests; which one it names no fuzzer would guess.
    void reply(unsigned choice) {
        TypeLookupReply reply;
        const size_t size = input_.next();
        if (!decode(input_.take(size << 8 | input_.next()), reply))
            return;
        reply.request_number = 1 + (choice >> 2);
        resolver_.take(reply, participant(choice & 3u), now_);
    }
    void end(TypeResolver::Asker asker) {
        resolver_.asker_gone(asker, now_);
        for (auto at = waiting_.begin(); at != waiting_.end();)
            at = at->second == asker ? waiting_.erase(at) : std::next(at);
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

    void take_outcomes() {
        for (const TypeResolver::Outcome& outcome : resolver_.take_outcomes())
            require(waiting_.erase({outcome.endpoint, outcome.asker}) == 1);
        for (const TypeResolver::Request& request : resolver_.take_requests()) {
            require(!request.hashes.empty());
            TypeLookupRequest message;
            message.asked = request.asked;
            message.hashes = request.hashes;
            message.form = request.form;
            require(!encode(message).empty());
        }
    }

    fuzz::Input input_;
    TypeResolver resolver_;
    std::set<std::pair<rtps::Guid, TypeResolver::Asker>> waiting_;
    rtps::MonotonicTime now_{0};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(fuzz::Input(data, size)).run();
    return 0;
}
