// Any bytes as a discovery payload and as inline QoS: they are decoded or refused with a reason, and what was
// decoded comes out of encoder and decoder unchanged.

#include <cstdlib>

#include "rtps/wire/discovery_data.h"

namespace {

using namespace meridian::rtps;

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// decode(payload, error) -> optional; encodes what it gave, decodes that, and compares both encodings.
template <typename Decode>
void check(ByteView payload, Decode decode) {
    std::string error;
    const auto decoded = decode(payload, error);
    require(decoded.has_value() || !error.empty());
    // Where a text lacked its terminator, encoding adds it, and the longest parameters then no longer fit.
    constexpr size_t kNearlyTooLong = 60000;
    if (!decoded || payload.size > kNearlyTooLong)
        return;
    const ByteBuffer once = encode(*decoded);
    const auto again = decode(once, error);
    require(again.has_value());
    require(encode(*again) == once);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const ByteView payload(bytes, size);
    check(payload, [](ByteView view, std::string& error) { return decode_participant(view, error); });
    check(payload, [](ByteView view, std::string& error) { return decode_endpoint(view, true, error); });
    check(payload, [](ByteView view, std::string& error) { return decode_endpoint(view, false, error); });
    for (const Endianness order : {Endianness::big, Endianness::little}) {
        InlineQos qos;
        if (decode_inline_qos(payload, order, qos)) {
            InlineQos again;
            require(decode_inline_qos(encode(qos), native_endianness(), again));
            require(again.key_hash == qos.key_hash && again.status_info == qos.status_info);
            require(again.related_writer == qos.related_writer &&
                    again.original_writer == qos.original_writer);
        }
    }
    decode_key(payload);
    if (const auto message = decode_participant_message(payload)) {
        const auto again = decode_participant_message(encode(*message));
        require(again && again->kind == message->kind);
    }
    return 0;
}
