// Inline QoS of a sample (discovery_data.h).

#include "rtps/wire/parameter_values.h"

namespace meridian::rtps {

namespace {

bool read_parameter(const Parameter& parameter, InlineQos& qos) {
    switch (parameter.base_id()) {
        case pid::key_hash:
            return read_members(parameter, qos.key_hash);
        case pid::status_info: {
            // Four octets, the flags in the last one: the same in both byte orders.
            ByteReader reader(parameter.value, Endianness::big);
            return reader.read(qos.status_info);
        }
        case pid::original_writer_info:
            return read_members(parameter, qos.original_writer, qos.original_sequence_number);
        case pid::related_sample_identity:
        case pid::vendor_related_sample_identity:
            return read_members(parameter, qos.related_writer, qos.related_sequence_number);
        default:
            if (parameter.not_understood())
                qos.refused = true;
            return true;
    }
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
        add_members(list, pid::key_hash, *qos.key_hash);
    if (qos.status_info != 0) {
        list.add(pid::status_info,
                 [&](ByteWriter& writer) { writer.write_bytes(octets_of(qos.status_info)); });
    }
    if (qos.original_writer)
        add_members(list, pid::original_writer_info, *qos.original_writer, qos.original_sequence_number);
    if (qos.related_writer) {
        // Which of the two a peer reads depends on its age.
        add_members(list, pid::related_sample_identity, *qos.related_writer, qos.related_sequence_number);
        add_members(list, pid::vendor_related_sample_identity, *qos.related_writer,
                    qos.related_sequence_number);
    }
    list.add_sentinel();
    return bytes;
}

} // namespace meridian::rtps
