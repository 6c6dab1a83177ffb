#include "rtps/wire/parameter_values.h"

#include <algorithm>
#include <cstdio>

namespace meridian::rtps {

namespace {

// Unknown parameters beyond so many are skipped: each takes many times its bytes.
constexpr size_t kMaxRaw = 256;
constexpr size_t kMaxProperties = 1024;

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
    if (raw.size() < kMaxRaw)
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

void drop_useless(std::vector<Property>& properties) {
    const auto unnamed = [](const Property& property) { return property.name.empty(); };
    const auto rest = std::remove_if(properties.begin(), properties.end(), unnamed);
    properties.erase(rest, properties.end());
    properties.resize(std::min(properties.size(), kMaxProperties));
    properties.shrink_to_fit();
}

bool read_member(ByteReader& reader, WireDuration& duration) {
    if (!read_element(reader, duration) || duration.seconds < 0)
        return false;
    if (duration.seconds == kDurationInfinite.seconds)
        duration = kDurationInfinite;
    return true;
}

void ParameterDecoder::locators(uint16_t id, LocatorList& list) {
    if (id != parameter_.base_id())
        return;
    Locator locator;
    verdict_ = if_possible(read_members(parameter_, locator));
    if (verdict_ == Verdict::taken)
        list.push_back(locator);
}

void ParameterDecoder::undecoded(uint16_t id, ByteBuffer& bytes) {
    if (id != parameter_.base_id())
        return;
    bytes.assign(parameter_.value.begin(), parameter_.value.end());
    verdict_ = Verdict::taken;
}

void ParameterEncoder::locators(uint16_t id, const LocatorList& list) {
    for (const Locator& locator : list)
        add_members(list_, id, locator);
}

void ParameterEncoder::undecoded(uint16_t id, const ByteBuffer& bytes) {
    if (keeps_raw_ && !bytes.empty())
        list_.add_bytes(id, bytes);
}

void ParameterEncoder::raw(const std::vector<RawParameter>& raw) {
    for (const RawParameter& parameter : raw) {
        if (keeps_raw_)
            list_.add_bytes(parameter.id, parameter.value);
    }
}

} // namespace meridian::rtps
