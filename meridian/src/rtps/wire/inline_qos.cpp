// Inline QoS of a sample (discovery_data.h).

#include "rtps/wire/parameter_values.h"

namespace meridian::rtps {

namespace {

/// A GUID and a sequence number: SampleIdentity, and the part of OriginalWriterInfo that matters here.
bool read_identity(const Parameter& parameter, std::optional<Guid>& writer, SequenceNumber& number) {
    ByteReader reader = parameter.reader();
    Guid guid;
    SequenceNumber read = 0;
    if (!read_guid(reader, guid) || !read_sequence_number(reader, read))
        return false;
    writer = guid;
    number = read;
    return true;
}

bool read_parameter(const Parameter& parameter, InlineQos& qos) {
    switch (parameter.base_id()) {
        case pid::key_hash: {
            KeyHash hash{};
            if (!parameter.reader().read_bytes(hash))
                return false;
            qos.key_hash = hash;
            return true;
        }
        case pid::status_info: {
            // Four octets, the flags in the last one: the same in both byte orders.
            ByteReader reader(parameter.value, Endianness::big);
            return reader.read(qos.status_info);
        }
        case pid::original_writer_info:
            return read_identity(parameter, qos.original_writer, qos.original_sequence_number);
        case pid::related_sample_identity:
        case pid::vendor_related_sample_identity:
            return read_identity(parameter, qos.related_writer, qos.related_sequence_number);
        default:
            if (parameter.not_understood())
                qos.refused = true;
            return true;
    }
}

void add_identity(ParameterListWriter& list, uint16_t id, const Guid& guid, SequenceNumber number) {
    list.add(id, [&](ByteWriter& writer) {
        write_guid(writer, guid);
        write_sequence_number(writer, number);
    });
}

} // namespace

bool decode_inline_qos(ByteView parameters, Endianness endianness, InlineQos& out) {
    ParameterListReader list(parameters, endianness);
    Parameter parameter;
    while (list.next(parameter)) {
        if (!read_parameter(parameter, out))
            return false;
    }
    return list.complete();
}

ByteBuffer encode(const InlineQos& qos) {
    ByteBuffer bytes;
    ParameterListWriter list(bytes);
    if (qos.key_hash)
        list.add(pid::key_hash, [&](ByteWriter& writer) { writer.write_bytes(*qos.key_hash); });
    if (qos.status_info != 0) {
        list.add(pid::status_info, [&](ByteWriter& writer) {
            const uint32_t info = qos.status_info;
            writer.write_bytes(std::array<uint8_t, 4>{
                static_cast<uint8_t>(info >> 24), static_cast<uint8_t>(info >> 16 & 0xff),
                static_cast<uint8_t>(info >> 8 & 0xff), static_cast<uint8_t>(info & 0xff)});
        });
    }
    if (qos.original_writer)
        add_identity(list, pid::original_writer_info, *qos.original_writer, qos.original_sequence_number);
    if (qos.related_writer) {
        // Which of the two a peer reads depends on its age.
        add_identity(list, pid::related_sample_identity, *qos.related_writer, qos.related_sequence_number);
        add_identity(list, pid::vendor_related_sample_identity, *qos.related_writer,
                     qos.related_sequence_number);
    }
    list.add_sentinel();
    return bytes;
}

} // namespace meridian::rtps
