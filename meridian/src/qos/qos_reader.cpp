#include "qos/qos_reader.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "qos/octets.h"
#include "qos/policies.h"

namespace meridian::qos {

namespace {

using Node = pugi::xml_node;

template <typename Record>
void read_record(QosReader& reader, Node element, Record& record);

// How one value is read, by its type and by the rule of its field.

template <typename Enumeration, typename Rule>
std::enable_if_t<std::is_enum_v<Enumeration>> read_value(QosReader& reader, Node element, Enumeration& value,
                                                         Rule) {
    reader.enumerator(element, value, kNames<Enumeration>);
}
void read_value(QosReader& reader, Node element, bool& value, Plain) {
    reader.boolean(element, value);
}
template <typename Integer>
void read_value(QosReader& reader, Node element, Integer& value, Number rule) {
    reader.number(element, value, rule.min, rule.max, rule.names);
}
void read_value(QosReader& reader, Node element, DDS_Long& value, Named rule) {
    reader.enumerator(element, value, rule.names);
}
void read_value(QosReader& reader, Node element, DDS_Long& value, Bits rule) {
    reader.mask(element, value, rule.names);
}
template <typename Rule>
void read_value(QosReader& reader, Node element, DDS_Duration_t& value, Rule) {
    reader.duration(element, value);
}
void read_value(QosReader& reader, Node element, char*& value, Plain) {
    const std::string word = reader.text(element);
    char* copy = DDS_String_dup(word.c_str());
    DDS_String_free(value);
    value = copy;
}
void read_value(QosReader& reader, Node element, DDS_StringSeq& value, Plain) {
    value.length(0);
    for (const Node item : reader.list(element))
        DDS_StringSeq_append(value, reader.text(item).c_str());
}
void read_value(QosReader& reader, Node element, DDS_OctetSeq& value, Plain) {
    value.length(0);
    if (element.find_child([](Node child) { return child.type() == pugi::node_element; })) {
        for (const Node item : reader.list(element)) {
            DDS_Octet octet = 0;
            reader.number(item, octet, 0, 255);
            value.append(octet);
        }
        return;
    }
    std::vector<DDS_Octet> decoded;
    const std::string problem = decode_octets(reader.text(element), decoded);
    if (!problem.empty())
        return reader.fail(element, problem);
    const auto length = static_cast<DDS_Long>(decoded.size());
    value.ensure_length(length, length);
    for (DDS_Long i = 0; i < length; ++i)
        value[i] = decoded[static_cast<size_t>(i)];
}
void read_value(QosReader& reader, Node element, DDS_DataRepresentationIdSeq& value, Plain) {
    value.length(0);
    for (const Node item : reader.list(element)) {
        DDS_DataRepresentationId_t id = DDS_XCDR_DATA_REPRESENTATION;
        reader.enumerator(item, id, kRepresentations);
        value.append(id);
    }
}
void read_value(QosReader& reader, Node element, DDS_Sequence<DDS_Property_t>& value, Plain) {
    value.length(0);
    std::set<std::string> names;
    for (const Node item : reader.list(element)) {
        DDS_Property_t property;
        read_record(reader, item, property);
        if (reader.ok() && (property.name == nullptr || property.name[0] == '\0'))
            reader.fail(item, "a property without name");
        if (!reader.ok())
            return;
        if (!names.insert(property.name).second)
            return reader.fail(item, std::string("the property \"") + property.name + "\" appears twice");
        if (property.value == nullptr)
            property.value = DDS_String_dup("");
        value.append(property);
    }
}
template <typename Record>
std::enable_if_t<IsRecord<Record>::value> read_value(QosReader& reader, Node element, Record& record, Plain) {
    read_record(reader, element, record);
}

struct DurationParts {
    std::optional<DDS_Long> sec;
    std::optional<DDS_UnsignedLong> nanosec;
};
constexpr auto fields_of(Of<DurationParts>) {
    return std::tuple(field("sec", &DurationParts::sec), field("nanosec", &DurationParts::nanosec));
}
void read_value(QosReader& reader, Node element, std::optional<DDS_Long>& value, Plain) {
    static constexpr NamedValue kNames[] = {{"DURATION_INFINITE_SEC", DDS_DURATION_INFINITE_SEC},
                                            {"DURATION_INFINITY", DDS_DURATION_INFINITE_SEC},
                                            {"DURATION_ZERO_SEC", 0}};
    reader.number(element, value.emplace(0), 0, DDS_DURATION_INFINITE_SEC, kNames);
}

void read_value(QosReader& reader, Node element, std::optional<DDS_UnsignedLong>& value, Plain) {
    static constexpr NamedValue kNames[] = {{"DURATION_INFINITE_NSEC", DDS_DURATION_INFINITE_NSEC},
                                            {"DURATION_INFINITY", DDS_DURATION_INFINITE_NSEC},
                                            {"DURATION_ZERO_NSEC", 0}};
    constexpr int64_t kWireInfinite = UINT32_MAX; // infinity as it looks on the wire
    int64_t nanosec = 0;
    reader.number(element, nanosec, 0, kWireInfinite, kNames);
    const bool infinite = nanosec == kWireInfinite || nanosec == DDS_DURATION_INFINITE_NSEC;
    if (!infinite && nanosec > 999999999)
        reader.fail(element, "a second or more; 999999999 is the most");
    value = infinite ? DDS_DURATION_INFINITE_NSEC : static_cast<DDS_UnsignedLong>(nanosec);
}

/// Reads the children of `element`, each at most once, into the record.
template <typename Record>
void read_record(QosReader& reader, Node element, Record& record) {
    std::array<bool, std::tuple_size_v<decltype(fields_of(Of<Record>()))>> seen{};
    for (const Node child : reader.children(element)) {
        bool known = false;
        size_t index = 0;
        for_each_field<Record>([&](const auto& field) {
            bool& was_seen = seen[index++];
            if (std::string_view(child.name()) != field.name)
                return;
            known = true;
            if (was_seen)
                reader.fail(child, std::string("appears twice in <") + element.name() + ">");
            else
                read_value(reader, child, record.*field.member, field.rule);
            was_seen = true;
        });
        if (!known)
            reader.fail_unknown(child, std::string("<") + element.name() + ">");
        if (!reader.ok())
            return;
    }
}

} // namespace

template <typename Qos>
void QosReader::read(Node element, Qos& qos) {
    read_record(*this, element, qos);
}
template void QosReader::read(Node, DDS_DomainParticipantQos&);
template void QosReader::read(Node, DDS_TopicQos&);
template void QosReader::read(Node, DDS_SubscriberQos&);
template void QosReader::read(Node, DDS_DataReaderQos&);

void QosReader::duration(Node element, DDS_Duration_t& value) {
    DurationParts parts;
    read_record(*this, element, parts);
    if (!ok() || (!parts.sec && !parts.nanosec))
        return;
    // Nothing is added to an infinite or to a default duration: a period of <sec>1</sec> is one second.
    const bool was_stated = !stated_durations_.insert(&value).second;
    const DDS_Duration_t before =
        was_stated && !DDS_Duration_is_infinite(value) ? value : DDS_Duration_t{DDS_DURATION_ZERO};
    const DDS_Duration_t merged{parts.sec.value_or(before.sec), parts.nanosec.value_or(before.nanosec)};
    if (DDS_Duration_is_infinite(merged))
        value = DDS_DURATION_INFINITE;
    else if (merged.nanosec == DDS_DURATION_INFINITE_NSEC)
        fail(element, "infinite nanoseconds beside finite seconds");
    else
        value = merged;
}

} // namespace meridian::qos
