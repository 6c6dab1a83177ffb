#include "rtps/protocol/reader.h"

namespace meridian::rtps {

bool make_sample(const Guid& writer, Quirks quirks, const MessageContext& context, const Data& data,
                 MonotonicTime now, Sample& out) {
    out.writer = writer;
    out.vendor = context.vendor;
    out.fast_cdr = quirks.fast_cdr;
    out.sequence_number = data.sequence_number;
    out.source_timestamp = context.timestamp.value_or(kTimeInvalid);
    out.received = now;
    out.has_payload = data.has_payload;
    out.payload_is_key = data.payload_is_key;
    out.payload = data.payload;
    if (data.inline_qos.empty())
        return true;
    return decode_inline_qos(data.inline_qos, data.endianness, out.inline_qos) && !out.inline_qos.refused;
}

Sample make_sample(const Guid& writer, Quirks quirks, VendorId vendor, const Sample& whole,
                   MonotonicTime now) {
    Sample sample = whole;
    sample.writer = writer;
    sample.vendor = vendor;
    sample.fast_cdr = quirks.fast_cdr;
    sample.received = now;
    // What is a key says what became of the instance.
    if (quirks.has(kMarksDataAsKeys) && sample.inline_qos.status_info == 0)
        sample.payload_is_key = false;
    return sample;
}

} // namespace meridian::rtps
