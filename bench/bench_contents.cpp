// The contents of a sample as text, against copying that much text: what the decoding and formatting cost.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "measure.h"
#include "meridian/dynamic_data.h"
#include "rtps/wire/encapsulation.h"
#include "types/data/dynamic_sample.h"
#include "types/documents/type_documents.h"
#include "writer_stand_in.h"
#include "xml/documents.h"

using namespace meridian;
using namespace meridian::types;

namespace {

[[noreturn]] void give_up(const std::string& what) {
    std::fprintf(stderr, "bench_contents: %s\n", what.c_str());
    std::exit(1);
}

constexpr const char* kTypes = R"(<types>
<struct name="Small"><member name="seq" type="uint32"/><member name="keyval" type="uint32" key="true"/>
  <member name="baggage" type="byte" arrayDimensions="24"/></struct>
<struct name="Time"><member name="sec" type="int32"/><member name="nanosec" type="uint32"/></struct>
<struct name="Header"><member name="stamp" type="nonBasic" nonBasicTypeName="Time"/>
  <member name="frame_id" type="string"/></struct>
<struct name="PointField"><member name="name" type="string"/><member name="offset" type="uint32"/>
  <member name="datatype" type="byte"/><member name="count" type="uint32"/></struct>
<struct name="PointCloud"><member name="header" type="nonBasic" nonBasicTypeName="Header"/>
  <member name="height" type="uint32"/><member name="width" type="uint32"/>
  <member name="fields" type="nonBasic" nonBasicTypeName="PointField" sequenceMaxLength="-1"/>
  <member name="is_bigendian" type="boolean"/><member name="point_step" type="uint32"/>
  <member name="row_step" type="uint32"/><member name="data" type="byte" sequenceMaxLength="-1"/>
  <member name="is_dense" type="boolean"/></struct>
<struct name="Image"><member name="header" type="nonBasic" nonBasicTypeName="Header"/>
  <member name="height" type="uint32"/><member name="width" type="uint32"/>
  <member name="encoding" type="string"/><member name="is_bigendian" type="uint8"/>
  <member name="step" type="uint32"/><member name="data" type="uint8" sequenceMaxLength="-1"/></struct>
<enum name="Mode"><enumerator name="IDLE"/><enumerator name="MOVING"/><enumerator name="FAULT"/></enum>
<struct name="Mixed"><member name="id" type="uint32"/><member name="active" type="boolean"/>
  <member name="mode" type="nonBasic" nonBasicTypeName="Mode"/><member name="name" type="string"/>
  <member name="stamp" type="int64"/><member name="x" type="float64"/><member name="y" type="float64"/>
  <member name="speed" type="float32"/><member name="count" type="int16"/><member name="flags" type="byte"/>
  <member name="grade" type="char8"/><member name="total" type="uint64"/></struct>
</types>)";

/// A cloud of so many points of four floats.
rtps::ByteBuffer point_cloud(uint32_t points) {
    rtps::ByteBuffer bytes;
    rtps::write_encapsulation(bytes, rtps::Encoding::cdr, rtps::native_endianness());
    rtps::ByteWriter writer(bytes, rtps::native_endianness());
    writer.write(int32_t{1700000000});
    writer.write(uint32_t{5});
    writer.write_string("lidar");
    writer.write(uint32_t{1});
    writer.write(points);
    writer.write(uint32_t{4});
    uint32_t offset = 0;
    for (const char* name : {"x", "y", "z", "intensity"}) {
        writer.write_string(name);
        writer.write(offset);
        writer.write(uint8_t{7});
        writer.write(uint32_t{1});
        offset += 4;
    }
    writer.write_bool(false);
    writer.write(uint32_t{16});
    writer.write(16 * points);
    writer.write(16 * points);
    for (uint32_t i = 0; i < 16 * points; ++i)
        writer.write(static_cast<uint8_t>(i * 37));
    writer.write_bool(true);
    return bytes;
}

/// A picture of 2000 by 1000 pixels of three octets.
rtps::ByteBuffer image() {
    rtps::ByteBuffer bytes;
    rtps::write_encapsulation(bytes, rtps::Encoding::cdr, rtps::native_endianness());
    rtps::ByteWriter writer(bytes, rtps::native_endianness());
    writer.write(int32_t{1700000000});
    writer.write(uint32_t{5});
    writer.write_string("camera");
    writer.write(uint32_t{1000});
    writer.write(uint32_t{2000});
    writer.write_string("rgb8");
    writer.write(uint8_t{0});
    writer.write(uint32_t{6000});
    writer.write(uint32_t{6000000});
    for (uint32_t i = 0; i < 6000000; ++i)
        writer.write(static_cast<uint8_t>(i * 37));
    return bytes;
}

/// Twelve members of as many kinds.
rtps::ByteBuffer mixed() {
    rtps::ByteBuffer bytes;
    rtps::write_encapsulation(bytes, rtps::Encoding::cdr, rtps::native_endianness());
    rtps::ByteWriter writer(bytes, rtps::native_endianness());
    writer.write(uint32_t{4711});
    writer.write_bool(true);
    writer.write(uint32_t{1});
    writer.write_string("robot_7");
    writer.write(int64_t{1700000000123456789});
    writer.write(12.345);
    writer.write(-0.5);
    writer.write(1.25f);
    writer.write(int16_t{-3});
    writer.write(uint8_t{200});
    writer.write(uint8_t{'A'});
    writer.write(uint64_t{123456789012});
    return bytes;
}

/// As the spy does it: the length first, then the text, of which a long one goes to the file. The length.
size_t compact(const DDS_DynamicData& data, FILE* file, std::string& text) {
    DDS_PrintFormatProperty format = DDS_PRINT_FORMAT_PROPERTY_DEFAULT;
    format.kind = DDS_JSON_PRINT_FORMAT;
    format.pretty_print = false;
    DDS_UnsignedLong length = 0;
    if (data.to_string(nullptr, length, format) != DDS_RETCODE_OK)
        give_up("a sample has no contents");
    if (length > 16 * 1024) {
        data.print(file, format);
    } else {
        text.resize(length);
        data.to_string(text.data(), length, format);
    }
    return length - 1;
}

std::string plain(const DDS_DynamicData& data) {
    char* text = nullptr;
    size_t size = 0;
    FILE* const file = open_memstream(&text, &size);
    const DDS_ReturnCode_t printed = data.print(file, 0);
    std::fclose(file);
    const std::string copy(text, size);
    std::free(text);
    if (printed != DDS_RETCODE_OK)
        give_up("a sample has no contents");
    return copy;
}

/// Only rows whose name holds it are measured.
std::string wanted;

void compare(const std::string& name, const TypeRef& type, const rtps::ByteBuffer& payload, uint64_t count,
             int rounds) {
    if (name.find(wanted) == std::string::npos)
        return;
    if (!type)
        give_up("no type " + name);
    DDS_DynamicData data;
    data.impl().assign(std::make_shared<DynamicContext>(type, name), payload);
    FILE* const null = std::fopen("/dev/null", "w");
    if (null == nullptr)
        give_up("/dev/null");
    const auto times = [count](auto work) {
        return [count, work] {
            for (uint64_t i = 0; i < count; ++i)
                work();
        };
    };
    const auto copying = [&times](const std::string& text) {
        return times([&text, target = std::make_shared<std::string>(text)] {
            std::memcpy(target->data(), text.data(), text.size());
            ferret::bench::keep(target->data());
        });
    };

    std::string room;
    const std::string compact_text(compact(data, null, room), '0');
    const std::string plain_text = plain(data);
    std::string failure;
    ferret::bench::Comparison as_compact(name + ", COMPACT: " + std::to_string(payload.size()) +
                                         " bytes to " + std::to_string(compact_text.size()) + " characters");
    as_compact.add("copy the text", count, copying(compact_text));
    as_compact.add("only decode", count,
                   times([&] { data.impl().context()->reader.walk(payload, nullptr, failure); }));
    as_compact.add("as the spy prints it, to /dev/null", count, times([&] { compact(data, null, room); }));
    as_compact.run(rounds);
    ferret::bench::Comparison as_plain(name + ", PLAIN: " + std::to_string(payload.size()) + " bytes to " +
                                       std::to_string(plain_text.size()) + " characters");
    as_plain.add("copy the text", count, copying(plain_text));
    as_plain.add("print to /dev/null", count, times([&] { data.print(null, 0); }));
    as_plain.run(rounds);
    std::fclose(null);
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = ferret::bench::rounds_of(argc, argv);
    wanted = argc > 2 ? argv[2] : "";
    meridian::xml::Documents documents;
    TypesByName types;
    std::string error;
    if (!documents.add_text("bench", kTypes, error) || !make_types(documents, types, error))
        give_up(error);
    compare("32-byte sample", types["Small"], ferret::bench::small_sample(), 5000, rounds);
    compare("12 mixed members", types["Mixed"], mixed(), 5000, rounds);
    compare("Point cloud of 32 KB", types["PointCloud"], point_cloud(2000), 10, rounds);
    compare("Point cloud of 1 MB", types["PointCloud"], point_cloud(62500), 1, rounds);
    compare("Camera image of 6 MB", types["Image"], image(), 1, rounds);
    return 0;
}
