#include "quixspy/quixSpySampleLine.h"

#include <cstring>

#include "quixspy/quixSpyHelpers.h"
#include "quixspy/quixSpyText.h"

namespace {

constexpr size_t kAddressWidth = 16;
// The writer chooses it once, and it is printed with each sample.
constexpr size_t kMostOfField = 4096;
constexpr char kUpperDigits[] = "0123456789ABCDEF";

void append_virtual_guid(std::string& line, const char* field, const DDS_GUID_t& guid) {
    if (guid == DDS_GUID_UNKNOWN)
        return;
    RtpsGuid words;
    DDS_GUID_copy_to_pres_guid(guid, &words);
    QUIXSpy_appendGuid(line, field, words);
}

void append_sequence_number(std::string& line, const char* field, const DDS_SequenceNumber_t& number) {
    if (number == DDS_SEQUENCE_NUMBER_UNKNOWN)
        return;
    line += field;
    line += "=(";
    QUIXSpy_appendDecimal(line, number.high);
    line += ", ";
    QUIXSpy_appendDecimal(line, number.low);
    line += ')';
}

void append_event(std::string& line, const DDS_SampleInfo& info, bool is_keyed) {
    // All of one width, so that the fields after them line up.
    switch (info.instance_state) {
        case DDS_ALIVE_INSTANCE_STATE:
            line += is_keyed && info.view_state == DDS_NOT_NEW_VIEW_STATE ? " Modified instance"
                                                                          : " New data         ";
            break;
        case DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE:
            line += " Disposed instance";
            break;
        case DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE:
            line += " No writers       ";
            break;
        default:
            break;
    }
}

/// The words of the key hash come as they lie in memory, unlike those of GUIDs.
void append_key(std::string& line, const DDS_InstanceHandle_t& handle) {
    uint32_t words[4];
    std::memcpy(words, handle.keyHash, sizeof words);
    const char* separator = " key=\"";
    for (const uint32_t word : words) {
        line += separator;
        QUIXSpy_appendHex(line, word, 8);
        separator = ".";
    }
    line += '"';
}

void append_flags(std::string& line, uint32_t flags) {
    if ((flags & 15U) == 0)
        return;
    line += " flags=\"";
    for (unsigned bit = 4; bit-- > 0;) {
        if ((flags >> bit & 1U) != 0)
            line += "RIPL"[bit];
    }
    line += '"';
}

} // namespace

void QUIXSpy_appendAddress(std::string& line, const char* ip) {
    const size_t length = strnlen(ip, kAddressWidth);
    line += " from ";
    line.append(ip, length);
    line.append(kAddressWidth - length, ' ');
    line += ':';
}

void QUIXSpy_appendField(std::string& line, const char* field, const char* text, size_t most) {
    if (text == nullptr)
        return;
    line += field;
    line += "=\"";
    QUIXSpy_appendText(line, text, most);
    line += std::strlen(text) > most ? "...\"" : "\"";
}

void QUIXSpy_appendGuid(std::string& line, const char* field, const RtpsGuid& guid) {
    line += field;
    line += "=\"0x";
    QUIXSpy_appendHex(line, guid.hostId, 8, kUpperDigits);
    line += ",0x";
    QUIXSpy_appendHex(line, guid.appId, 8, kUpperDigits);
    line += ",0x";
    QUIXSpy_appendHex(line, guid.instanceId, 8, kUpperDigits);
    line += ":0x";
    QUIXSpy_appendHex(line, guid.entityId, 8, kUpperDigits);
    line += '"';
}

RtpsGuid QUIXSpy_writerGuid(const DDS_SampleInfo& info) {
    DDS_GUID_t guid;
    std::memcpy(guid.value, info.publication_handle.keyHash, sizeof guid.value);
    RtpsGuid words;
    DDS_GUID_copy_to_pres_guid(guid, &words);
    return words;
}

std::string QUIXSpy_formatTopicField(const char* topicName, int32_t topicWidth, const char* typeName,
                                     int32_t typeWidth) {
    std::string field = " topic=\"";
    QUIXSpy_appendText(field, topicName, static_cast<size_t>(topicWidth));
    field += "\" type=\"";
    QUIXSpy_appendText(field, typeName, static_cast<size_t>(typeWidth));
    field += '"';
    return field;
}

void QUIXSpy_formatSampleLine(std::string& line, const QuixSpySampleLineFields& fields,
                              const std::string& topicField, const DDS_SampleInfo& info,
                              const QuixSpyEndpointInfo& writer) {
    const bool is_writer_known = !RtpsGuid_isUnknown(writer.guid);
    QUIXSpy_printTimestamp(line, info.source_timestamp);
    append_event(line, info, fields.isKeyed);
    QUIXSpy_appendAddress(line, is_writer_known ? writer.ip : "unknown ip");
    line += topicField;
    if (fields.showHandle && fields.isKeyed) {
        append_key(line, info.instance_handle);
        QUIXSpy_appendGuid(line, " guid", QUIXSpy_writerGuid(info));
    }
    if (fields.showSampleFlags)
        append_flags(line, info.flag);
    if (fields.showSampleIdentity) {
        const DDS_SampleIdentity_t& own = info.sample_identity;
        const DDS_SampleIdentity_t& related = info.related_sample_identity;
        append_virtual_guid(line, " virtual_guid", own.writer_guid);
        append_virtual_guid(line, " related_virtual_guid", related.writer_guid);
        append_sequence_number(line, " virtual_sn", own.sequence_number);
        append_sequence_number(line, " related_virtual_sn", related.sequence_number);
    }
    if (is_writer_known && fields.showEntityName)
        QUIXSpy_appendField(line, " name", writer.name, kMostOfField);
    if (is_writer_known && fields.showPartition) {
        QUIXSpy_appendField(line, " DP partition", writer.participantPartition, kMostOfField);
        QUIXSpy_appendField(line, " S partition", writer.endpointPartition, kMostOfField);
    }
}
