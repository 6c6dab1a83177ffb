#include "quixspy/quixSpyRawPrinter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "agent/QuixAgentOutput.h"
#include "raw_sample.h"
#include "support/type_documents.h"

using namespace meridian::types;
using test::Bytes;
using test::RawSample;

namespace {

constexpr DDS_Octet kOrders[] = {QUIX_CDR_ENDIAN_LITTLE, QUIX_CDR_ENDIAN_BIG};

/// Bytes of a sample in plain CDR, in either byte order.
class Payload {
  public:
    explicit Payload(DDS_Octet order, uint8_t kind = 0, size_t largest_alignment = 8)
        : order_(order), largest_alignment_(largest_alignment) {
        bytes_ = {0, static_cast<uint8_t>(kind | order), 0, 0};
    }
    template <typename T>
    Payload& put(T value) {
        align(sizeof value);
        const auto* const first = reinterpret_cast<const uint8_t*>(&value);
        return ordered(Bytes(first, first + sizeof value));
    }
    /// Bytes of one value, given in little-endian order.
    Payload& ordered(Bytes value) {
        align(value.size());
        if (order_ == QUIX_CDR_ENDIAN_BIG)
            std::reverse(value.begin(), value.end());
        bytes_.insert(bytes_.end(), value.begin(), value.end());
        return *this;
    }
    Payload& text(const std::string& value) {
        put(static_cast<uint32_t>(value.size() + 1));
        bytes_.insert(bytes_.end(), value.c_str(), value.c_str() + value.size() + 1);
        return *this;
    }
    /// A wide string, its length in octets.
    Payload& wide(const std::u16string& value) {
        put(static_cast<uint32_t>(2 * value.size()));
        for (const char16_t character : value)
            put(static_cast<uint16_t>(character));
        return *this;
    }
    const Bytes& bytes() const { return bytes_; }

  private:
    void align(size_t size) {
        size = std::min({size, largest_alignment_, size_t{8}});
        while ((bytes_.size() - 4) % size != 0)
            bytes_.push_back(0xee);
    }
    DDS_Octet order_;
    size_t largest_alignment_;
    Bytes bytes_;
};

using Fill = std::function<void(Payload&)>;

class RawPrinter : public testing::Test {
  protected:
    /// Types of a document.
    const Type* define(const std::string& types, const char* name) {
        std::string error;
        EXPECT_TRUE(documents_->load("doc", "<types>" + types + "</types>", error)) << error;
        held_.push_back(documents_->find(name));
        EXPECT_TRUE(held_.back()) << name;
        return held_.back().get();
    }
    /// A structure "S" with these members, and the types in front of it.
    const Type* structure(const std::string& members, const std::string& types = "") {
        return define(types + "<struct name='S'>" + members + "</struct>", "S");
    }
    /// A node of a graph that a test builds by hand.
    Type* node(DDS_TCKind kind) {
        if (!hand_made_)
            hand_made_ = TypeRef::adopt(TypeGraph::create()->add());
        Type* const made = hand_made_->graph->add();
        made->kind = kind;
        return made;
    }
    const Type* primitive(DDS_TCKind kind) { return node(kind)->graph->primitive(kind); }
    Type* array(std::vector<uint32_t> dimensions, const Type* content) {
        Type* const made = node(DDS_TK_ARRAY);
        made->dimensions = std::move(dimensions);
        made->content = content;
        return made;
    }

    /// What is printed of the payload, and then "!" when the walk fails.
    static std::string print(const DDS_TypeCode* type, const Bytes& payload, int32_t indent = 0) {
        RawSample sample;
        EXPECT_TRUE(sample.set(payload));
        std::string text;
        const bool done = QuixSpyRawPrinter(text).print_sample(sample.record, type, indent);
        return text + (done ? "" : "!");
    }
    static void expect(const DDS_TypeCode* type, const Fill& fill, const std::string& text,
                       int32_t indent = 0) {
        for (const DDS_Octet order : kOrders) {
            Payload payload(order);
            fill(payload);
            EXPECT_EQ(print(type, payload.bytes(), indent), text) << "order " << int{order};
        }
    }

    std::unique_ptr<TypeDocuments> documents_ = std::make_unique<TypeDocuments>();
    std::vector<TypeRef> held_;
    TypeRef hand_made_;
};

constexpr char kColor[] =
    "<enum name='Color'><enumerator name='RED'/><enumerator name='GREEN' value='-5'/>"
    "<enumerator name='BLUE' value='70000'/></enum>";
constexpr char kEverything[] = R"(
<typedef name='Text' type='string' stringMaxLength='5'/>
<struct name='Everything'>
  <member name='s' type='int16'/><member name='l' type='int32'/><member name='us' type='uint16'/>
  <member name='ul' type='uint32'/><member name='f' type='float32'/><member name='d' type='float64'/>
  <member name='yes' type='boolean'/><member name='no' type='boolean'/><member name='c' type='char8'/>
  <member name='o' type='byte'/><member name='e' type='nonBasic' nonBasicTypeName='Color'/>
  <member name='t' type='nonBasic' nonBasicTypeName='Text'/><member name='ll' type='int64'/>
  <member name='ull' type='uint64'/><member name='ld' type='float128'/><member name='wc' type='char16'/>
  <member name='ws' type='wstring'/><member name='z' type='byte'/>
</struct>)";
constexpr char kEverythingText[] = R"(
s: -2
l: -70000
us: 65534
ul: 4294967295
f: 1.500000
d: -2.250000
yes: true
no: false
c: 'x'
o: <0b>
e: GREEN
t: "hello"
ll: <0807060504030201>
ull: <fffffffffffffff0>
ld: <00112233445566778899aabbccddeeff>
wc: <000020ac>
ws: <00000061000020ac>
z: <07>)";

void fill_everything(Payload& payload) {
    payload.put<int16_t>(-2).put<int32_t>(-70000).put<uint16_t>(65534).put<uint32_t>(0xffffffffu);
    payload.put(1.5F).put(-2.25).put<uint8_t>(3).put<uint8_t>(0).put('x').put<uint8_t>(0x0b);
    payload.put<int32_t>(-5)
        .text("hello")
        .put<int64_t>(0x0102030405060708)
        .put<uint64_t>(0xf0ffffffffffffffu);
    payload.ordered(
        {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff});
    payload.put<uint16_t>(0x20ac).wide(u"a\u20ac").put<uint8_t>(7);
}

} // namespace

TEST_F(RawPrinter, PrintsEveryPrimitiveKind) {
    const Type* type = define(std::string(kColor) + kEverything, "Everything");
    expect(type, fill_everything, kEverythingText);
}

TEST_F(RawPrinter, ReadsTheByteOrderOfTheSample) {
    const Type* type = structure("<member name='a' type='int16'/><member name='b' type='int32'/>");
    EXPECT_EQ(print(type, {0, 1, 0, 0, 0x02, 0x01, 0, 0, 0x06, 0x05, 0x04, 0x03}), "\na: 258\nb: 50595078");
    EXPECT_EQ(print(type, {0, 0, 0, 0, 0x01, 0x02, 0, 0, 0x03, 0x04, 0x05, 0x06}), "\na: 258\nb: 50595078");
}

TEST_F(RawPrinter, IndentsThreeBlanksPerLevel) {
    std::string text;
    QuixSpyRawPrinter printer(text);
    printer.print_indent(-1);
    printer.print_indent(0);
    EXPECT_EQ(text, "");
    printer.print_indent(2);
    EXPECT_EQ(text, "      ");
}

TEST_F(RawPrinter, PrintsStructuresInStructures) {
    const Type* type = structure(
        "<member name='p' type='nonBasic' nonBasicTypeName='P'/>"
        "<member name='none' type='nonBasic' nonBasicTypeName='None'/>"
        "<member name='z' type='byte'/>",
        "<struct name='None'/><struct name='P'><member name='x' type='int32'/>"
        "<member name='y' type='int32'/></struct>");
    const Fill fill = [](Payload& payload) { payload.put<int32_t>(1).put<int32_t>(2).put<uint8_t>(3); };
    expect(type, fill, "\np: \n   x: 1\n   y: 2\nnone: \n\nz: <03>");
    expect(type, fill, "\n      p: \n         x: 1\n         y: 2\n      none: \n\n      z: <03>", 2);
}

TEST_F(RawPrinter, PrintsTheBaseFirst) {
    const Type* type = define(
        "<struct name='A'><member name='a' type='byte'/></struct>"
        "<struct name='B' baseType='A'><member name='b' type='int32'/></struct>"
        "<struct name='C' baseType='B'><member name='c' type='byte'/></struct>",
        "C");
    ASSERT_EQ(type->kind, DDS_TK_VALUE);
    expect(
        type, [](Payload& payload) { payload.put<uint8_t>(1).put<int32_t>(2).put<uint8_t>(3); },
        "\na: <01>\nb: 2\nc: <03>");
    expect(
        type, [](Payload& payload) { payload.put<uint8_t>(1); }, "\na: <01>\nb: !");
}

TEST_F(RawPrinter, PrintsSequences) {
    const Type* type = structure(
        "<member name='n' type='int16' sequenceMaxLength='-1'/>"
        "<member name='t' type='string' sequenceMaxLength='3'/>"
        "<member name='z' type='byte'/>");
    expect(
        type,
        [](Payload& payload) {
            payload.put<uint32_t>(2).put<int16_t>(-1).put<int16_t>(5);
            payload.put<uint32_t>(1).text("ab").put<uint8_t>(9);
        },
        "\nn: \n   [0]: -1\n   [1]: 5\nt: \n   [0]: \"ab\"\nz: <09>");
    expect(
        type, [](Payload& payload) { payload.put<uint32_t>(0).put<uint32_t>(0).put<uint8_t>(9); },
        "\nn: \nt: \nz: <09>");
    expect(
        type, [](Payload& payload) { payload.put<uint32_t>(0xffffffffu).put<int16_t>(1); },
        "\nn: \n   [0]: 1\n   [1]: !");
}

TEST_F(RawPrinter, PrintsSequencesOfStructures) {
    const Type* type = structure(
        "<member name='p' type='nonBasic' nonBasicTypeName='P' "
        "sequenceMaxLength='-1'/>",
        "<struct name='P'><member name='x' type='byte'/></struct>");
    expect(
        type, [](Payload& payload) { payload.put<uint32_t>(2).put<uint8_t>(1).put<uint8_t>(2); },
        "\np: \n   [0]: \n      x: <01>\n   [1]: \n      x: <02>");
}

TEST_F(RawPrinter, PrintsArraysWithTheLastDimensionFastest) {
    const Type* type = structure(
        "<member name='m' type='int16' arrayDimensions='2,3'/>"
        "<member name='z' type='byte'/>");
    expect(
        type,
        [](Payload& payload) {
            for (int16_t i = 10; i < 16; ++i)
                payload.put(i);
            payload.put<uint8_t>(1);
        },
        "\nm: \n   [0][0]: 10\n   [0][1]: 11\n   [0][2]: 12\n   [1][0]: 13\n   [1][1]: 14\n   [1][2]: 15"
        "\nz: <01>");
}

TEST_F(RawPrinter, TakesTenDimensionsAndNoMore) {
    const Type* octet = primitive(DDS_TK_OCTET);
    const Fill fill = [](Payload& payload) { payload.put<uint8_t>(1).put<uint8_t>(2); };
    expect(array({1, 1, 1, 1, 1, 1, 1, 1, 1, 2}, octet), fill,
           "\n[0][0][0][0][0][0][0][0][0][0]: <01>\n[0][0][0][0][0][0][0][0][0][1]: <02>");
    expect(array(std::vector<uint32_t>(11, 1), octet), fill, "\n!");
    expect(array({}, octet), fill, "\n: <01>");
    expect(array({4, 0, 0xffffffffu}, octet), fill, "\n");
}

TEST_F(RawPrinter, PrintsTheMemberThatTheDiscriminatorSelects) {
    const Type* type = define(R"(
<union name='U'><discriminator type='int16'/>
  <case><caseDiscriminator value='1'/><caseDiscriminator value='-2'/><member name='a' type='int32'/></case>
  <case><caseDiscriminator value='3'/><caseDiscriminator value='default'/><member name='b' type='byte'/></case>
  <case><caseDiscriminator value='4'/><member name='c' type='byte' arrayDimensions='2'/></case>
</union>)",
                              "U");
    const auto with = [](int16_t discriminator) {
        return [discriminator](Payload& payload) { payload.put(discriminator).put<int32_t>(0x05050505); };
    };
    expect(type, with(1), "\n_d: 1\na: 84215045");
    expect(type, with(-2), "\n_d: -2\na: 84215045");
    expect(type, with(4), "\n_d: 4\nc: \n      [0]: <ee>\n      [1]: <ee>"); // the padding
    expect(type, with(9), "\n_d: 9\ndefault: <ee>");
    expect(type, with(3), "\n_d: 3\ndefault: <ee>"); // labels of the default member are not looked at
    expect(
        type, [](Payload& payload) { payload.put<int16_t>(1); }, "\n_d: 1\na: !");
    expect(
        type, [](Payload&) {}, "\n_d: !");
}

TEST_F(RawPrinter, FailsAtAUnionThatHasNothingForItsDiscriminator) {
    const Type* type =
        structure("<member name='u' type='nonBasic' nonBasicTypeName='U'/>",
                  "<union name='U'><discriminator type='char8'/><case><caseDiscriminator value=\"'a'\"/>"
                  "<member name='m' type='boolean'/></case></union>");
    expect(
        type, [](Payload& payload) { payload.put('a').put<uint8_t>(0); }, "\nu: \n   _d: 'a'\n   m: false");
    expect(
        type, [](Payload& payload) { payload.put('b').put<uint8_t>(0); }, "\nu: \n   _d: 'b'\n   default: !");
}

TEST_F(RawPrinter, ReadsDiscriminatorsWithoutConsumingThem) {
    const struct {
        DDS_TCKind kind;
        Bytes bytes; // in little-endian order
        int32_t value;
    } cases[] = {
        {DDS_TK_SHORT, {0xfe, 0xff}, -2},
        {DDS_TK_USHORT, {0xfe, 0xff}, 65534},
        {DDS_TK_LONG, {0xfe, 0xff, 0xff, 0xff}, -2},
        {DDS_TK_ULONG, {0xfe, 0xff, 0xff, 0xff}, -2},
        {DDS_TK_ENUM, {1, 2, 0, 0}, 513},
        {DDS_TK_CHAR, {0xfe}, -2},
        {DDS_TK_BOOLEAN, {1}, 1},
        {DDS_TK_OCTET, {0xfe}, 254},
    };
    for (const auto& one : cases) {
        Type* const alias = node(DDS_TK_ALIAS);
        alias->content = node(one.kind);
        for (const DDS_Octet order : kOrders) {
            Payload payload(order);
            payload.put<uint8_t>(0).ordered(one.bytes);
            RawSample sample;
            ASSERT_TRUE(sample.set(payload.bytes()));
            QUIXCdrStream& stream = *sample.record.stream;
            ++stream.currentPosition;
            std::string text;
            int32_t value = 99;
            EXPECT_TRUE(QuixSpyRawPrinter(text).get_discriminator_value(sample.record, alias, value));
            EXPECT_EQ(value, one.value) << "kind " << one.kind;
            EXPECT_EQ(stream.currentPosition, stream.buffer + 1);
            EXPECT_EQ(text, "");
            stream.currentPosition += QUIXCdrStream_remaining(&stream);
            EXPECT_FALSE(QuixSpyRawPrinter(text).get_discriminator_value(sample.record, alias, value));
        }
    }
    RawSample sample;
    ASSERT_TRUE(sample.set(Bytes(40, 0)));
    std::string text;
    int32_t value = 99;
    for (const DDS_TCKind kind : {DDS_TK_NULL, DDS_TK_FLOAT, DDS_TK_LONGLONG, DDS_TK_ULONGLONG, DDS_TK_WCHAR,
                                  DDS_TK_STRING, DDS_TK_STRUCT, DDS_TK_UINT8})
        EXPECT_FALSE(QuixSpyRawPrinter(text).get_discriminator_value(sample.record, node(kind), value));
    EXPECT_FALSE(QuixSpyRawPrinter(text).get_discriminator_value(sample.record, nullptr, value));
    EXPECT_EQ(value, 99);
}

TEST_F(RawPrinter, PrintsNothingForAnUnknownEnumerator) {
    const Type* type = structure(
        "<member name='e' type='nonBasic' nonBasicTypeName='Color'/>"
        "<member name='z' type='byte'/>",
        kColor);
    expect(
        type, [](Payload& payload) { payload.put<int32_t>(70000).put<uint8_t>(1); }, "\ne: BLUE\nz: <01>");
    expect(
        type, [](Payload& payload) { payload.put<int32_t>(2).put<uint8_t>(1); }, "\ne: \nz: <01>");
}

TEST_F(RawPrinter, BoundsStrings) {
    Type* const text = node(DDS_TK_STRING);
    text->bound = 3;
    expect(
        text, [](Payload& payload) { payload.text("abc"); }, "\"abc\"");
    expect(
        text, [](Payload& payload) { payload.text(""); }, "\"\"");
    expect(
        text, [](Payload& payload) { payload.text("abcd"); }, "!");
    expect(
        text, [](Payload& payload) { payload.put<uint32_t>(0); }, "!");
    text->bound = 0; // none
    expect(
        text, [](Payload& payload) { payload.text(std::string(1000, 'x')); },
        '"' + std::string(1000, 'x') + '"');
    expect(
        text, [](Payload& payload) { payload.put<uint32_t>(0x80000000u); }, "!");
}

// What Fast DDS writes: characters are counted, of two octets by its newer serializer, of four by its older
// one.
TEST_F(RawPrinter, ReadsWideTextAsItsVendorWritesIt) {
    const Type* const type = define(R"(<struct name="W" extensibility="final"><member name="n" type="int32"/>
        <member name="w" type="wstring"/><member name="c" type="char16"/><member name="d" type="float64"/></struct>)",
                                    "W");
    const QUIXCdrSource fast_dds{{}, {1, 15}, 0};
    const auto print = [&](const Bytes& payload, const QUIXCdrSource& vendor) {
        test::RawSample sample;
        EXPECT_TRUE(sample.set(payload, vendor));
        std::string text;
        const bool done = QuixSpyRawPrinter(text).print_sample(sample.record, type, 0);
        return text + (done ? "" : "!");
    };
    const std::string whole = "\nn: 1\nw: <0000006100000062>\nc: <00000063>\nd: 1.500000";
    const Bytes begin{0, 1, 0, 0, 1, 0, 0, 0};
    const Bytes end{0, 0, 0, 0, 0, 0, 0xf8, 0x3f};
    const auto payload = [&](const Bytes& text) {
        Bytes bytes = begin;
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.insert(bytes.end(), end.begin(), end.end());
        return bytes;
    };
    const Bytes units = payload({2, 0, 0, 0, 'a', 0, 'b', 0, 'c', 0, 0xee, 0xee});
    const Bytes quads = payload({2, 0, 0, 0, 'a', 0, 0, 0, 'b', 0, 0, 0, 'c', 0, 0, 0, 0, 0, 0, 0});
    const Bytes octets = payload({4, 0, 0, 0, 'a', 0, 'b', 0, 'c', 0, 0, 0});
    EXPECT_EQ(print(units, fast_dds), whole);
    EXPECT_EQ(print(quads, fast_dds), whole);
    EXPECT_EQ(print(octets, {}), whole);
    EXPECT_EQ(print(Bytes(units.begin(), units.end() - 4), fast_dds), "\nn: 1\nw: !") << "in no form whole";
    // The release tells which of them it is.
    const QUIXCdrSource fast_cdr_1{{}, {1, 15}, 1};
    const QUIXCdrSource fast_cdr_2{{}, {1, 15}, 2};
    EXPECT_EQ(print(units, fast_cdr_2), whole);
    EXPECT_EQ(print(quads, fast_cdr_1), whole);
    EXPECT_EQ(print(units, fast_cdr_1), "\nn: 1\nw: !");
    EXPECT_EQ(print(quads, fast_cdr_2), "\nn: 1\nw: !");
}

TEST_F(RawPrinter, EscapesCharactersThatTurnText) {
    expect(
        node(DDS_TK_STRING), [](Payload& payload) { payload.text("a\u202eb\u2028\u2069c\u2030"); },
        "\"a\\u202eb\\u2028\\u2069c\u2030\"");
}

TEST_F(RawPrinter, BoundsWideStrings) {
    Type* const text = node(DDS_TK_WSTRING);
    text->bound = 2;
    using namespace std::string_literals;
    expect(
        text, [](Payload& payload) { payload.wide(u""); }, "<>");
    expect(
        text, [](Payload& payload) { payload.wide(u"\0"s); }, "<>");
    expect(
        text, [](Payload& payload) { payload.wide(u"ab\0"s); }, "<0000006100000062>");
    expect(
        text, [](Payload& payload) { payload.wide(u"abcd"); }, "!");
    expect(
        text, [](Payload& payload) { payload.put<uint32_t>(3).put<uint32_t>(0); }, "!");
    text->bound = 0; // none
    expect(
        text, [](Payload& payload) { payload.put<uint32_t>(0xfffffffeu); }, "!");
}

TEST_F(RawPrinter, PrintsPrimitivesWithoutParts) {
    Type* const alias = node(DDS_TK_ALIAS);
    alias->content = primitive(DDS_TK_SHORT);
    RawSample sample;
    ASSERT_TRUE(sample.set({0, 1, 0, 0, 5, 0, 6, 0}));
    std::string text;
    QuixSpyRawPrinter printer(text);
    EXPECT_TRUE(printer.print_primitive_sample(sample.record, alias));
    EXPECT_TRUE(printer.print_primitive_sample(sample.record, alias));
    EXPECT_EQ(text, "56");
    EXPECT_FALSE(printer.print_primitive_sample(sample.record, alias));

    Bytes zeros(40, 0);
    ASSERT_TRUE(sample.set(zeros));
    for (const DDS_TCKind kind :
         {DDS_TK_NULL, DDS_TK_STRUCT, DDS_TK_UNION, DDS_TK_SEQUENCE, DDS_TK_ARRAY, DDS_TK_VALUE, DDS_TK_INT8,
          DDS_TK_UINT8, DDS_TK_BITMASK, DDS_TK_BITSET, DDS_TK_MAP})
        EXPECT_FALSE(printer.print_primitive_sample(sample.record, node(kind))) << kind;
    EXPECT_FALSE(printer.print_primitive_sample(sample.record, nullptr));
    EXPECT_EQ(text, "56");
}

TEST_F(RawPrinter, PrintsASampleOnce) {
    const Type* type = structure("<member name='a' type='byte'/>");
    RawSample sample;
    ASSERT_TRUE(sample.set({0, 1, 0, 0, 5}));
    std::string text;
    EXPECT_TRUE(QuixSpyRawPrinter(text).print_sample(sample.record, type, 0));
    EXPECT_FALSE(QuixSpyRawPrinter(text).print_sample(sample.record, type, 0));
    EXPECT_EQ(text, "\na: <05>\na: ");
}

TEST_F(RawPrinter, RefusesNothing) {
    RawSample sample;
    std::string text;
    EXPECT_FALSE(QuixSpyRawPrinter(text).print_sample(sample.record, primitive(DDS_TK_OCTET), 0));
    ASSERT_TRUE(sample.set({0, 1, 0, 0, 5}));
    EXPECT_FALSE(QuixSpyRawPrinter(text).print_sample(sample.record, nullptr, 0));
    EXPECT_FALSE(QuixSpyRawPrinter(text).print_sample(sample.record, node(DDS_TK_SEQUENCE), 0));
    EXPECT_EQ(text, "");
}

TEST_F(RawPrinter, StopsInFrontOfWhatItCannotRead) {
    const char* const types =
        "<bitmask name='Mask'><flag name='A'/></bitmask>"
        "<enum name='Narrow' bitBound='8'><enumerator name='N'/></enum>"
        "<bitset name='Bits'><bitfield name='x' bit_bound='3'/></bitset>"
        "<struct name='Mutable' extensibility='mutable'><member name='x' type='byte'/>"
        "</struct>";
    const char* const members[] = {
        "<member name='m' type='int8'/>",
        "<member name='m' type='uint8'/>",
        "<member name='m' type='nonBasic' nonBasicTypeName='Mask'/>",
        "<member name='m' type='nonBasic' nonBasicTypeName='Bits'/>",
        "<member name='m' type='nonBasic' nonBasicTypeName='Narrow'/>",
        "<member name='m' type='nonBasic' nonBasicTypeName='Mutable'/>",
        "<member name='m' type='int32' mapKeyType='int32' mapMaxLength='-1'/>",
    };
    for (const char* const member : members) {
        documents_ = std::make_unique<TypeDocuments>();
        const Type* type = structure(std::string("<member name='a' type='byte'/>") + member, types);
        EXPECT_EQ(print(type, Bytes{0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}), "\na: <01>\nm: !") << member;
    }
    documents_ = std::make_unique<TypeDocuments>();
    const Type* type =
        structure("<member name='a' type='byte'/><member name='m' type='byte' optional='true'/>");
    EXPECT_EQ(print(type, Bytes{0, 1, 0, 0, 1, 1, 1, 1}), "\na: <01>\n!");
}

TEST_F(RawPrinter, StopsAtBitFields) {
    Type* const type = node(DDS_TK_STRUCT);
    Member member;
    member.name = "whole";
    member.type = primitive(DDS_TK_LONG);
    type->members.push_back(member);
    member.name = "part";
    member.bits = 3;
    type->members.push_back(member);
    expect(
        type, [](Payload& payload) { payload.put<int32_t>(1).put<int32_t>(1); }, "\nwhole: 1\n!");
}

TEST_F(RawPrinter, TakesPlainEncapsulationsOnly) {
    const Type* type = structure("<member name='a' type='byte'/>");
    for (const uint8_t kind : Bytes{2, 3, 8, 9, 10, 11})
        EXPECT_EQ(print(type, {0, kind, 0, 0, 5}), "!") << int{kind};
    for (const uint8_t kind : Bytes{0, 1, 6, 7})
        EXPECT_EQ(print(type, {0, kind, 0, 0, 5}), "\na: <05>") << int{kind};
}

TEST_F(RawPrinter, AlignsToFourInXcdr2) {
    const Type* type = define(std::string(kColor) + kEverything, "Everything");
    for (const DDS_Octet order : kOrders) {
        Payload payload(order, 6, 4);
        fill_everything(payload);
        EXPECT_EQ(print(type, payload.bytes()), kEverythingText);
    }
}

TEST_F(RawPrinter, StopsAtHeadersOfXcdr2) {
    const Type* type = structure(
        "<member name='n' type='int16' sequenceMaxLength='-1'/>"
        "<member name='f' type='nonBasic' nonBasicTypeName='F'/>"
        "<member name='m' type='nonBasic' nonBasicTypeName='A'/>",
        "<struct name='A'><member name='x' type='byte'/></struct>"
        "<struct name='F' extensibility='final'><member name='x' type='byte'/>"
        "</struct>");
    const Bytes bytes = {0, 7, 0, 0, 1, 0, 0, 0, 5, 0, 6, 0xee, 1, 0, 0, 0, 7};
    EXPECT_EQ(print(type, bytes), "\nn: \n   [0]: 5\nf: \n   x: <06>\nm: !");
    const Type* texts = define(
        "<struct name='T'><member name='t' type='string' arrayDimensions='1'/></struct>"
        "<struct name='Q'><member name='t' type='string' sequenceMaxLength='1'/></struct>",
        "T");
    EXPECT_EQ(print(texts, bytes), "\nt: \n!");
    EXPECT_EQ(print(define("", "Q"), bytes), "\nt: !");
}

TEST_F(RawPrinter, CountsAlignmentFromItsOrigin) {
    const Type* type = structure("<member name='a' type='int32'/><member name='b' type='float64'/>");
    DynamicTypePlugin_g_use42Alignment = true;
    const std::string text = print(type, {0, 1, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf8, 0x3f});
    DynamicTypePlugin_g_use42Alignment = false;
    EXPECT_EQ(text, "\na: 5\nb: 1.500000");
}

TEST_F(RawPrinter, LimitsTheDepthOfRecursion) {
    // As deep as the sample wants: each level is a sequence of one.
    Type* const tree = node(DDS_TK_STRUCT);
    Type* const children = node(DDS_TK_SEQUENCE);
    children->content = tree;
    Member member;
    member.name = "c";
    member.type = children;
    tree->members.push_back(member);
    Payload deep(QUIX_CDR_ENDIAN_LITTLE);
    for (unsigned i = 0; i + 1 < QUIXSPY_RAW_PRINTER_MAX_DEPTH / 2; ++i)
        deep.put<uint32_t>(1);
    Payload deeper = deep;
    EXPECT_EQ(print(tree, deep.put<uint32_t>(0).bytes()).back(), ' ');
    EXPECT_EQ(print(tree, deeper.put<uint32_t>(1).put<uint32_t>(0).bytes()).back(), '!');

    // Without an end whatever the sample.
    Type* const alias = node(DDS_TK_ALIAS);
    alias->content = alias;
    Type* const base = node(DDS_TK_VALUE);
    base->base = base;
    Type* const itself = array({1}, nullptr);
    itself->content = itself;
    RawSample sample;
    ASSERT_TRUE(sample.set({0, 1, 0, 0, 5}));
    std::string text;
    QuixSpyRawPrinter printer(text);
    int32_t value = 0;
    EXPECT_FALSE(printer.print_sample(sample.record, alias, 0));
    EXPECT_FALSE(printer.print_primitive_sample(sample.record, alias));
    EXPECT_FALSE(printer.get_discriminator_value(sample.record, alias, value));
    EXPECT_FALSE(printer.print_sample(sample.record, base, 0));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(printer.print_sample(sample.record, itself, 0));
}

TEST_F(RawPrinter, LimitsValuesThatTakeNoBytes) {
    const Type* const empty = node(DDS_TK_STRUCT);
    Type* const sequence = node(DDS_TK_SEQUENCE);
    sequence->content = empty;
    const std::string text = print(sequence, {0, 1, 0, 0, 0xff, 0xff, 0xff, 0xff});
    EXPECT_EQ(text.back(), '!');
    EXPECT_LT(text.size(), 100000u);
    const Type* const huge = array(std::vector<uint32_t>(10, 0xffffffffu), empty);
    EXPECT_EQ(print(huge, {0, 1, 0, 0}).back(), '!');
    const std::string four = print(sequence, {0, 1, 0, 0, 2, 0, 0, 0});
    EXPECT_EQ(four, "\n[0]: \n\n[1]: \n");
}

TEST_F(RawPrinter, PutsLongTexts) {
    Type* const sequence = node(DDS_TK_SEQUENCE);
    sequence->content = primitive(DDS_TK_OCTET);
    Bytes bytes = {0, 1, 0, 0, 0x40, 0x9c, 0, 0}; // 40000
    bytes.resize(bytes.size() + 40000, 0xab);
    RawSample sample;
    ASSERT_TRUE(sample.set(bytes));
    std::string written;
    QuixAgentOutput output(written);
    std::string rest = "line";
    EXPECT_TRUE(QuixSpyRawPrinter(rest, &output).print_sample(sample.record, sequence, 0));
    EXPECT_GT(written.size(), 300000u);
    EXPECT_LT(rest.size(), 70000u);
    EXPECT_EQ("line" + print(sequence, bytes), written + rest);
}

// Whatever is missing or wrong: the walk ends, and what stands before it is what it would have been.
TEST_F(RawPrinter, SurvivesEveryTruncationAndBitFlip) {
    const Type* everything = define(std::string(kColor) + kEverything, "Everything");
    const Type* mixed = define(R"(
<union name='Choice'><discriminator type='nonBasic' nonBasicTypeName='Color'/>
  <case><caseDiscriminator value='RED'/><member name='red' type='string'/></case>
  <case><caseDiscriminator value='BLUE'/><member name='blue' type='int16' sequenceMaxLength='-1'/></case>
</union>
<struct name='Mixed'>
  <member name='m' type='float32' arrayDimensions='2,2'/>
  <member name='u' type='nonBasic' nonBasicTypeName='Choice' sequenceMaxLength='4'/>
  <member name='w' type='wstring' sequenceMaxLength='-1'/>
</struct>)",
                               "Mixed");
    const Fill fill_mixed = [](Payload& payload) {
        payload.put(1.0F).put(2.0F).put(3.0F).put(4.0F);
        payload.put<uint32_t>(2).put<int32_t>(0).text("abc");
        payload.put<int32_t>(70000).put<uint32_t>(2).put<int16_t>(7).put<int16_t>(8);
        payload.put<uint32_t>(1).wide(u"xy");
    };
    const struct {
        const Type* type;
        Fill fill;
    } cases[] = {{everything, fill_everything}, {mixed, fill_mixed}};
    for (const auto& one : cases) {
        for (const DDS_Octet order : kOrders) {
            Payload payload(order);
            one.fill(payload);
            const std::string whole = print(one.type, payload.bytes());
            ASSERT_NE(whole.back(), '!') << whole;
            for (size_t size = 4; size < payload.bytes().size(); ++size) {
                const auto end = payload.bytes().begin() + static_cast<std::ptrdiff_t>(size);
                std::string text = print(one.type, Bytes(payload.bytes().begin(), end));
                ASSERT_EQ(text.back(), '!') << size;
                text.pop_back();
                EXPECT_EQ(whole.compare(0, text.size(), text), 0) << text;
            }
            size_t different = 0;
            for (size_t bit = 32; bit < 8 * payload.bytes().size(); ++bit) {
                Bytes flipped = payload.bytes();
                flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << (bit % 8)));
                different += print(one.type, flipped) != whole;
            }
            EXPECT_GT(different, 4 * payload.bytes().size());
            EXPECT_EQ(print(one.type, payload.bytes()), whole);
        }
    }
}
