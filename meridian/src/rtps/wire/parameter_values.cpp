#include "rtps/wire/parameter_values.h"

#include <cstdio>

namespace meridian::rtps {

namespace {

constexpr uint32_t kMaxPort = 65535;

std::string hex16(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04x", value & 0xffffu);
    return text;
}

} // namespace

bool PayloadParameters::open(ByteView payload, PayloadParameters& list, std::string& error) {
    Encapsulation encapsulation;
    ByteView body;
    if (!read_encapsulation(payload, encapsulation, body)) {
        error = "payload of " + std::to_string(payload.size) + " bytes has no encapsulation header";
        return false;
    }
    if (encapsulation.encoding() != Encoding::pl_cdr) {
        error = "encapsulation " + hex16(encapsulation.identifier) + " is not a parameter list";
        return false;
    }
    list.order_ = encapsulation.endianness();
    list.reader_ = ParameterListReader(body, list.order_);
    return true;
}

Verdict PayloadParameters::keep(const Parameter& parameter, std::vector<RawParameter>& raw) {
    if (parameter.not_understood())
        return Verdict::refused;
    raw.push_back({parameter.id, ByteBuffer(parameter.value.begin(), parameter.value.end())});
    return Verdict::taken;
}

std::string PayloadParameters::describe(const Parameter& parameter) const {
    const pid::Info* info = pid::find(parameter.base_id());
    const size_t offset = kEncapsulationSize + reader_.consumed() - parameter.value.size;
    return "parameter " + hex16(parameter.id) +
           (info != nullptr ? std::string(" (") + info->name + ")" : "") + " at byte " +
           std::to_string(offset) +
           (parameter.not_understood() ? " must be understood and is unknown"
                                       : " is truncated or out of range");
}

bool PayloadParameters::check_complete(std::string& error) const {
    if (reader_.complete())
        return true;
    error = "malformed parameter list at byte " + std::to_string(kEncapsulationSize + reader_.consumed());
    return false;
}

bool read_duration(ByteReader& reader, WireDuration& duration) {
    WireDuration read;
    if (!read_time(reader, read) || read.seconds < 0)
        return false;
    duration = read.seconds == kDurationInfinite.seconds ? kDurationInfinite : read;
    return true;
}

bool read_flag(const Parameter& parameter, bool& value) {
    return parameter.reader().read_bool(value);
}

bool read_text(const Parameter& parameter, std::string& text) {
    return parameter.reader().read_string(text);
}

bool read_texts(ByteReader& reader, std::vector<std::string>& texts) {
    uint32_t count = 0;
    if (!reader.read_length(count, sizeof(uint32_t)))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        if (!reader.read_string(texts.emplace_back()))
            return false;
    }
    return true;
}

bool read_octets(const Parameter& parameter, ByteBuffer& bytes) {
    return parameter.reader().read_octets(bytes);
}

bool read_properties(const Parameter& parameter, std::vector<Property>& properties) {
    return read_value(parameter, properties, [](ByteReader& reader, std::vector<Property>& list) {
        uint32_t count = 0;
        if (!reader.read_length(count, 2 * sizeof(uint32_t)))
            return false;
        // Binary properties may follow; nothing here needs them.
        for (uint32_t i = 0; i < count; ++i) {
            Property& property = list.emplace_back();
            if (!reader.read_string(property.name) || !reader.read_string(property.value))
                return false;
        }
        return true;
    });
}

bool read_locator_into(const Parameter& parameter, LocatorList& list) {
    ByteReader reader = parameter.reader();
    Locator locator;
    if (!read_locator(reader, locator))
        return false;
    const bool udp = locator.kind == kLocatorUdpV4 || locator.kind == kLocatorUdpV6;
    if (!udp || (locator.port != 0 && locator.port <= kMaxPort))
        list.push_back(locator);
    return true;
}

void add_text(ParameterListWriter& list, uint16_t id, const std::string& text) {
    list.add(id, [&](ByteWriter& writer) { writer.write_string(text); });
}

void add_octets(ParameterListWriter& list, uint16_t id, const ByteBuffer& bytes) {
    list.add(id, [&](ByteWriter& writer) { writer.write_octets(bytes); });
}

void add_guid(ParameterListWriter& list, uint16_t id, const Guid& guid) {
    list.add(id, [&](ByteWriter& writer) { write_guid(writer, guid); });
}

void add_flag(ParameterListWriter& list, uint16_t id, bool value) {
    list.add(id, [&](ByteWriter& writer) { writer.write_bool(value); });
}

void add_duration(ParameterListWriter& list, uint16_t id, WireDuration duration) {
    list.add(id, [&](ByteWriter& writer) { write_time(writer, duration); });
}

void add_locators(ParameterListWriter& list, uint16_t id, const LocatorList& locators) {
    for (const Locator& locator : locators)
        list.add(id, [&](ByteWriter& writer) { write_locator(writer, locator); });
}

void add_properties(ParameterListWriter& list, const std::vector<Property>& properties) {
    if (properties.empty())
        return;
    list.add(pid::property_list, [&](ByteWriter& writer) {
        writer.write(static_cast<uint32_t>(properties.size()));
        for (const Property& property : properties) {
            writer.write_string(property.name);
            writer.write_string(property.value);
        }
    });
}

void write_texts(ByteWriter& writer, const std::vector<std::string>& texts) {
    writer.write(static_cast<uint32_t>(texts.size()));
    for (const std::string& text : texts)
        writer.write_string(text);
}

void add_raw(ParameterListWriter& list, const std::vector<RawParameter>& raw, Endianness order) {
    if (order != native_endianness())
        return;
    for (const RawParameter& parameter : raw)
        list.add_bytes(parameter.id, parameter.value);
}

} // namespace meridian::rtps
