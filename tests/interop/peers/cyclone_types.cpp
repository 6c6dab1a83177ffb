#include "cyclone_types.h"

#include <cstring>
#include <type_traits>

#include "json.h"
#include "peer_types.h"

namespace peers {

namespace {

// The C strings and buffers that a sample points into while it is used.
struct Buffers {
    std::string text;
    std::vector<uint8_t> payload;
};

// The changed release of the types has one member more.
template <typename T, typename = void>
struct HasExtra : std::false_type {};
template <typename T>
struct HasExtra<T, std::void_t<decltype(std::declval<T>().extra)>> : std::true_type {};

template <typename T>
void fill_counted(T& data, const Sample& sample, Buffers& buffers) {
    data.id = sample.id;
    data.value = sample.value;
    if constexpr (HasExtra<T>::value) {
        data.extra = -static_cast<int32_t>(sample.value);
    }
    buffers.payload.resize(sample.size);
    for (size_t i = 0; i < buffers.payload.size(); ++i) {
        buffers.payload[i] = static_cast<uint8_t>(i);
    }
    data.payload._buffer = buffers.payload.data();
    data.payload._length = sample.size;
    data.payload._maximum = sample.size;
    data.payload._release = false;
}

template <typename T>
dds_return_t build_counted(const Sample& sample, const Action& action) {
    Buffers buffers;
    T data{};
    fill_counted(data, sample, buffers);
    return action(&data);
}

template <typename Sequence>
std::string sequence(const Sequence& values) {
    return json_array(values._buffer, values._length);
}

template <typename T>
std::string describe_counted(const void* sample) {
    const T& data = *static_cast<const T*>(sample);
    JsonObject object;
    object.add("id", data.id).add("value", data.value);
    if constexpr (HasExtra<T>::value) {
        object.add("extra", data.extra);
    }
    return object.add_json("payload", sequence(data.payload)).text();
}

dds_return_t build_shape(const Sample& sample, const Action& action) {
    Buffers buffers;
    buffers.text = "COLOR" + std::to_string(sample.id);
    peers_Shape data{};
    data.color = buffers.text.data();
    data.x = static_cast<int32_t>(sample.value);
    data.y = -static_cast<int32_t>(sample.value);
    data.shapesize = 30;
    return action(&data);
}

std::string describe_shape(const void* sample) {
    const auto& data = *static_cast<const peers_Shape*>(sample);
    return JsonObject()
        .add("color", data.color)
        .add("x", data.x)
        .add("y", data.y)
        .add("shapesize", data.shapesize)
        .text();
}

constexpr const char* kMoods[] = {"CALM", "BUSY", "ANGRY"};

dds_return_t build_mixed(const Sample& sample, const Action& action) {
    char name[] = "robot_7";
    peers_Mixed data{};
    data.id = static_cast<uint32_t>(sample.id);
    data.enabled = true;
    data.mood = peers_BUSY;
    data.name = name;
    data.stamp = 1700000000123456789LL + sample.value;
    data.x = 12.345;
    data.y = -0.5;
    data.speed = 1.25F;
    data.gear = -3;
    data.level = 200;
    data.grade = 'A';
    data.distance = 123456789012ULL;
    return action(&data);
}

std::string describe_mixed(const void* sample) {
    const auto& data = *static_cast<const peers_Mixed*>(sample);
    return JsonObject()
        .add("id", data.id)
        .add("enabled", data.enabled)
        .add("mood", kMoods[data.mood])
        .add("name", data.name)
        .add("stamp", data.stamp)
        .add("x", data.x)
        .add("y", data.y)
        .add("speed", data.speed)
        .add("gear", data.gear)
        .add("level", data.level)
        .add("grade", std::string(1, data.grade))
        .add("distance", data.distance)
        .text();
}

// Samples take turns with the branches of the union; the last text is not one of ASCII letters only.
void fill_reading(peers_Reading& reading, uint32_t value, Buffers& buffers) {
    reading._d = static_cast<int32_t>(value % 3) + 1;
    if (reading._d == 1) {
        reading._u.whole = -7;
    } else if (reading._d == 2) {
        reading._u.real = 0.1;
    } else {
        reading._u.text = buffers.text.data();
    }
}

dds_return_t build_everything(const Sample& sample, const Action& action) {
    Buffers buffers;
    peers_Everything data{};
    fill_counted(data, sample, buffers);
    buffers.text = "\"quoted\" \\ tab\t gr\u00fc\u00df " + std::to_string(sample.value);
    data.flag = sample.value % 2 == 0;
    data.byte = 0xAB;
    data.letter = 'x';
    data.medium_signed = -16000;
    data.medium_unsigned = 65000;
    data.large_unsigned = 4000000000U;
    data.huge_signed = -9000000000000000000LL;
    data.huge_unsigned = 18000000000000000000ULL;
    data.real32 = 0.1F;
    data.real64 = -2.25e-100;
    data.text = buffers.text.data();
    std::strncpy(data.bounded, "bounded", sizeof data.bounded - 1);
    data.mood = static_cast<peers_Mood>(sample.value % 3);
    data.point = {0.5, 1.5};
    data.corners[0] = {1.0, 2.0};
    data.corners[1] = {3.0, 4.0};
    peers_Point track[3] = {{0.0, 0.0}, {1.0, 1.0}, {2.0, 4.0}};
    data.track._buffer = track;
    data.track._length = data.track._maximum = 3;
    char first[] = "first";
    char second[] = "";
    char* words[2] = {first, second};
    data.words._buffer = words;
    data.words._length = data.words._maximum = 2;
    for (int i = 0; i < 6; ++i) {
        data.grid[i / 3][i % 3] = i;
    }
    fill_reading(data.reading, sample.value, buffers);
    return action(&data);
}

std::string json(const peers_Point& point) {
    return JsonObject().add("x", point.x).add("y", point.y).text();
}

std::string json_points(const peers_Point* points, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ",") + json(points[i]);
    }
    return "[" + text + "]";
}

std::string json(const peers_Reading& reading) {
    JsonObject object;
    object.add("_d", reading._d);
    switch (reading._d) {
        case 1:
            return object.add("whole", reading._u.whole).text();
        case 2:
            return object.add("real", reading._u.real).text();
        default:
            return object.add("text", reading._u.text).text();
    }
}

std::string describe_everything(const void* sample) {
    const auto& data = *static_cast<const peers_Everything*>(sample);
    return JsonObject()
        .add("id", data.id)
        .add("value", data.value)
        .add("flag", data.flag)
        .add("byte", data.byte)
        .add("letter", std::string(1, data.letter))
        .add("medium_signed", data.medium_signed)
        .add("medium_unsigned", data.medium_unsigned)
        .add("large_unsigned", data.large_unsigned)
        .add("huge_signed", data.huge_signed)
        .add("huge_unsigned", data.huge_unsigned)
        .add("real32", data.real32)
        .add("real64", data.real64)
        .add("text", data.text)
        .add("bounded", data.bounded)
        .add("mood", kMoods[data.mood])
        .add_json("point", json(data.point))
        .add_json("corners", json_points(data.corners, 2))
        .add_json("track", json_points(data.track._buffer, data.track._length))
        .add_json("words", sequence(data.words))
        .add_json("grid", "[" + json_array(data.grid[0], 3) + "," + json_array(data.grid[1], 3) + "]")
        .add_json("reading", json(data.reading))
        .add_json("payload", sequence(data.payload))
        .text();
}

template <typename T>
constexpr CycloneType counted(const char* name, const dds_topic_descriptor_t& descriptor) {
    return {name, &descriptor, build_counted<T>, describe_counted<T>};
}

// What an application announces that calls a type keyless which its type information says has a key.
dds_topic_descriptor_t without_key(const dds_topic_descriptor_t& keyed) {
    // Behind the operations of the members stands where the keys are. 11 wants neither that nor the flag of
    // a key.
    static std::vector<uint32_t> operations(keyed.m_ops, keyed.m_ops + keyed.m_keys[0].m_offset);
    operations[0] &= ~static_cast<uint32_t>(DDS_OP_FLAG_KEY);
    return {keyed.m_size,
            keyed.m_align,
            keyed.m_flagset & ~(DDS_TOPIC_FIXED_KEY | DDS_TOPIC_FIXED_KEY_XCDR2),
            0,
            keyed.m_typename,
            nullptr,
            static_cast<uint32_t>(operations.size()),
            operations.data(),
            keyed.m_meta,
            keyed.type_information,
            keyed.type_mapping,
            keyed.restrict_data_representation};
}
const dds_topic_descriptor_t kContradicting = without_key(peers_Everything_desc);

const CycloneType kTypes[] = {
    counted<peers_Keyed>("keyed", peers_Keyed_desc),
    counted<peers_Unkeyed>("unkeyed", peers_Unkeyed_desc),
    counted<peers_Appendable>("appendable", peers_Appendable_desc),
    counted<peers_Mutable>("mutable", peers_Mutable_desc),
    {"shape", &peers_Shape_desc, build_shape, describe_shape},
    {"mixed", &peers_Mixed_desc, build_mixed, describe_mixed},
    {"everything", &peers_Everything_desc, build_everything, describe_everything},
    {"contradicting", &kContradicting, build_everything, describe_everything},
};

} // namespace

const CycloneType* cyclone_type(const std::string& name) {
    for (const CycloneType& type : kTypes) {
        if (name == type.name) {
            return &type;
        }
    }
    return nullptr;
}

} // namespace peers
