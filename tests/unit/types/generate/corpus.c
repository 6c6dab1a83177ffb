/* Writes what Cyclone DDS makes of the types in corpus.idl: for each type the type information and the type mapping that
 * idlc computed, and samples serialized by Cyclone DDS in both encodings and both byte orders, each with the text that
 * its own printer shows for it, and the key hash that it would send. Works without a domain: nothing is sent.
 * See regenerate.sh. */
#include <math.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <dds/dds.h>
#include <dds/ddsi/ddsi_cdrstream.h>
#include <dds/ddsi/ddsi_serdata_default.h>
#include <dds/ddsrt/md5.h>

#include "corpus.h"

static void put_hex(const char *label, const void *bytes, size_t size)
{
    printf("%s ", label);
    for (size_t i = 0; i < size; i++)
        printf("%02x", ((const unsigned char *)bytes)[i]);
    printf("\n");
}

/* A payload: the encapsulation header, then the stream. */
static void put_payload(const char *label, unsigned id, const void *bytes, size_t size)
{
    const unsigned padding = (unsigned)(-size & 3);
    printf("%s %04x%04x", label, id, padding);
    for (size_t i = 0; i < size; i++)
        printf("%02x", ((const unsigned char *)bytes)[i]);
    for (unsigned i = 0; i < padding; i++)
        printf("00");
    printf("\n");
}

static void make_type(struct ddsi_sertype_default *type, const dds_topic_descriptor_t *desc)
{
    memset(type, 0, sizeof *type);
    type->type.size = desc->m_size;
    type->type.align = desc->m_align;
    type->type.flagset = desc->m_flagset;
    type->type.keys.nkeys = desc->m_nkeys;
    type->type.keys.keys = calloc(desc->m_nkeys + 1, sizeof *type->type.keys.keys);
    for (uint32_t i = 0; i < desc->m_nkeys; i++) {
        type->type.keys.keys[i].ops_offs = desc->m_keys[i].m_offset;
        type->type.keys.keys[i].idx = desc->m_keys[i].m_idx;
    }
    type->type.ops.nops = dds_stream_countops(desc->m_ops, desc->m_nkeys, desc->m_keys);
    type->type.ops.ops = (uint32_t *)desc->m_ops;
}

static unsigned identifier(const struct ddsi_sertype_default *type, uint32_t version)
{
    enum ddsi_sertype_extensibility ext = DDSI_SERTYPE_EXT_FINAL;
    if (version == 1)
        return 0;
    (void)dds_stream_extensibility(type->type.ops.ops, &ext);
    return ext == DDSI_SERTYPE_EXT_FINAL ? 6 : ext == DDSI_SERTYPE_EXT_APPENDABLE ? 8 : 10;
}

static void put_type(const dds_topic_descriptor_t *desc)
{
    printf("type %s\n", desc->m_typename);
    put_hex("information", desc->type_information.data, desc->type_information.sz);
    put_hex("mapping", desc->type_mapping.data, desc->type_mapping.sz);
}

/* The key hash takes the form of the encoding that the writer uses. */
static void put_key_hash(const struct ddsi_sertype_default *type, const void *key, uint32_t size, uint32_t version)
{
    dds_istream_t is;
    dds_ostreamBE_t os;
    unsigned char hash[16] = {0};
    dds_istream_init(&is, size, key, version);
    dds_ostreamBE_init(&os, 0, version);
    dds_stream_extract_keyBE_from_key(&is, &os, type);
    if (type->type.flagset & (version == 1 ? DDS_TOPIC_FIXED_KEY : DDS_TOPIC_FIXED_KEY_XCDR2)) {
        memcpy(hash, os.x.m_buffer, os.x.m_index);
    } else {
        ddsrt_md5_state_t md5;
        ddsrt_md5_init(&md5);
        ddsrt_md5_append(&md5, os.x.m_buffer, os.x.m_index);
        ddsrt_md5_finish(&md5, hash);
    }
    put_hex(version == 1 ? "keyhash1" : "keyhash", hash, sizeof hash);
    dds_ostreamBE_fini(&os);
}

static void put_sample(const dds_topic_descriptor_t *desc, const void *sample)
{
    struct ddsi_sertype_default type;
    make_type(&type, desc);
    printf("value\n");
    for (uint32_t version = dds_stream_minimum_xcdr_version(type.type.ops.ops); version <= 2; version++) {
        dds_ostreamLE_t le;
        dds_ostreamBE_t be;
        char label[32];
        dds_ostreamLE_init(&le, 0, version);
        dds_ostreamBE_init(&be, 0, version);
        if (!dds_stream_write_sampleLE(&le, sample, &type) || !dds_stream_write_sampleBE(&be, sample, &type)) {
            fprintf(stderr, "cannot write %s\n", desc->m_typename);
            exit(1);
        }
        if (version == 2) {
            static char text[1 << 20];
            dds_istream_t is;
            dds_istream_init(&is, le.x.m_index, le.x.m_buffer, version);
            (void)dds_stream_print_sample(&is, &type, text, sizeof text);
            put_hex("peer", text, strlen(text));
        }
        snprintf(label, sizeof label, "sample xcdr%u-le", version);
        put_payload(label, identifier(&type, version) | 1, le.x.m_buffer, le.x.m_index);
        snprintf(label, sizeof label, "sample xcdr%u-be", version);
        put_payload(label, identifier(&type, version), be.x.m_buffer, be.x.m_index);
        if (desc->m_nkeys > 0) {
            /* What a dispose carries; only in this machine's byte order, which must be little-endian. */
            dds_ostream_t key;
            dds_ostream_init(&key, 0, version);
            dds_stream_write_key(&key, sample, &type);
            snprintf(label, sizeof label, "key xcdr%u-le", version);
            put_payload(label, identifier(&type, version) | 1, key.m_buffer, key.m_index);
            put_key_hash(&type, key.m_buffer, key.m_index, version);
            dds_ostream_fini(&key);
        }
        dds_ostreamLE_fini(&le);
        dds_ostreamBE_fini(&be);
    }
    free(type.type.keys.keys);
}

#define SAMPLE(T, ...)                              \
    do {                                            \
        corpus_##T value = __VA_ARGS__;             \
        put_type(&corpus_##T##_desc);               \
        put_sample(&corpus_##T##_desc, &value);     \
    } while (0)
#define AGAIN(T, ...)                               \
    do {                                            \
        corpus_##T value = __VA_ARGS__;             \
        put_sample(&corpus_##T##_desc, &value);     \
    } while (0)
/* A sequence of the elements that follow. */
#define SEQ(E, ...) {sizeof((E[]){__VA_ARGS__}) / sizeof(E), sizeof((E[]){__VA_ARGS__}) / sizeof(E), (E[]){__VA_ARGS__}, false}
#define NONE {0, 0, NULL, false}

static void small_types(void)
{
    SAMPLE(Integers, {-128, 255, -32768, 65535, INT32_MIN, UINT32_MAX, INT64_MIN, UINT64_MAX});
    AGAIN(Integers, {1, 2, 3, 4, 5, 6, 7, 8});
    SAMPLE(Floats, {1.5f, -2.25, 1e-45f, 1.7976931348623157e308, 1.0f / 3.0f, 0.1});
    SAMPLE(Specials, {NAN, INFINITY, -INFINITY, NAN, -0.0f});
    SAMPLE(Others, {true, false, 'x', '"', 200});
    SAMPLE(Text, {"", "plain text", "tab\tquote\"back\\slash\nnewline\x01" "bell\x7f", "twelve bytes", "Gr\xc3\xbc\xc3\x9f""e \xe2\x82\xac \xf0\x9f\x98\x80"});
    AGAIN(Text, {"broken \xff\xfe bytes", "cut \xe2\x82", "overlong \xc0\xaf surrogate \xed\xa0\x80", "", "</script> \xe2\x80\xa8"});
    SAMPLE(Enums, {corpus_GREEN, corpus_HIGH, corpus_T1, corpus_M1, corpus_BLUE});
    SAMPLE(Masks, {corpus_F0 | corpus_F7, corpus_G15, corpus_H0 | corpus_H1, corpus_J63, 0, corpus_F3});
    SAMPLE(Padding, {1, 2.5, 3, 4, 5, 6, 7, 8});
    SAMPLE(Arrays, {{1, -2, 3}, {255, 0}, {"one", "two"}, {{1, 2, 3}, {4, 5, 6}}, {corpus_RED, corpus_BLUE}, {0.5, 1.5}});
    SAMPLE(Sequences, {SEQ(int32_t, 1, 2, 3), SEQ(uint8_t, 0, 127, 255), SEQ(char *, "a", "", "ccc"), SEQ(double, 1e100),
                       SEQ(int32_t, 5, 4), SEQ(bool, true, false, true), NONE, SEQ(char, 'h', 'i'), SEQ(int64_t, -1, INT64_MAX)});
    SAMPLE(EnumCollections, {SEQ(corpus_Color, corpus_RED, corpus_BLUE), SEQ(corpus_Flags8, corpus_F0, 0, corpus_F3 | corpus_F0),
                             {corpus_T0, corpus_T1, corpus_T0}, SEQ(corpus_Tiny, corpus_T1)});
    AGAIN(EnumCollections, {NONE, NONE, {0, 0, 0}, NONE});
    AGAIN(EnumCollections, {SEQ(corpus_Color, corpus_RED, corpus_RED, corpus_RED, corpus_RED), NONE, {0, 0, 0}, NONE});
    SAMPLE(Aliases, {7, {1, 2, 3}, "short"});
    SAMPLE(Point, {0.1, -0.2});
    SAMPLE(Nested, {{1, 2}, {1, 2, 3, 4, 5, 6, 7, 8}, {{3, 4}, {5, 6}}, SEQ(corpus_Point, {7, 8}, {9, 10})});
    SAMPLE(Deep, {SEQ(dds_sequence_sequence_long, SEQ(dds_sequence_long, SEQ(int32_t, 1, 2), NONE), NONE),
                  SEQ(dds_sequence_string, SEQ(char *, "x", "yy"), NONE, SEQ(char *, ""))});
    SAMPLE(SequenceOfArrays, {SEQ(corpus_Numbers, {1, 2, 3}, {4, 5, 6}), {{{1, 2}}, {{3, 4}}}});
    SAMPLE(ArraysOfAliases, {{{1, 2, 3}, {4, 5, 6}}, {{0, 1}, {2, 0}}, corpus_GREEN});
    SAMPLE(Bounded, {{3, 2, (corpus_ShortText[]){"first", "second"}, false}, SEQ(corpus_Point, {1, 2}), "word"});
}

static void unions(void)
{
    SAMPLE(OnLong, {._d = 2, ._u.s = "two"});
    AGAIN(OnLong, {._d = 99, ._u.d = 9.75});
    SAMPLE(OnEnum, {._d = corpus_BLUE, ._u.b = {1, 2}});
    SAMPLE(OnBool, {._d = true, ._u.t = "yes"});
    SAMPLE(OnChar, {._d = 'b', ._u.b = SEQ(int32_t, 10, 20)});
    SAMPLE(OnOctet, {._d = 200, ._u.other = "default"});
    SAMPLE(Unions, {{._d = 1, ._u.l = 11}, {._d = 3, ._u.s = "three"}, {._d = -5, ._u.d = 0.25}, {._d = corpus_RED, ._u.r = -1},
                    {._d = false, ._u.f = 9}, {._d = 'a', ._u.a = 65},
                    SEQ(corpus_OnLong, {._d = 1, ._u.l = 1}, {._d = 7, ._u.d = 2}), {._d = 0, ._u.zero = 5}});
    SAMPLE(EmptyUnion, {{._d = corpus_GREEN}, 42});
}

static void extensible(void)
{
    int32_t one = 1, two = 2;
    uint8_t octet = 8;
    int64_t large = -9;
    double real = 0.5;
    corpus_Point point = {3, 4};
    dds_sequence_long longs = SEQ(int32_t, 6, 7);
    SAMPLE(Extended, {1, {2, 3}, SEQ(corpus_AppendablePoint, {4, 5}, {6, 7}), "text", INT64_MAX});
    SAMPLE(AppendableUnion, {._d = 0, ._u.p = {1, 2}});
    AGAIN(AppendableUnion, {._d = 1, ._u.s = "s"});
    SAMPLE(HoldsAppendableUnion, {{._d = 1, ._u.s = "x"}, 5, {._d = 0, ._u.p = {8, 9}}});
    SAMPLE(Changeable, {200, -3, 123456, 2.5, "mutable", SEQ(int32_t, 1, 2, 3), {4, 5}, {7, 8, 9}, SEQ(double, 0.5, 0.25),
                        SEQ(char *, "s1", "s22"), true, SEQ(uint8_t, 1, 2, 3, 4, 5), -77, {10, 11}, corpus_BLUE});
    AGAIN(Changeable, {0, 0, 0, 0, "", NONE, {0, 0}, {0, 0, 0}, NONE, NONE, false, NONE, 0, {0, 0}, 0});
    SAMPLE(MutablePoint, {INT32_MIN, INT32_MAX});
    SAMPLE(Hashed, {1, "two", 3});
    SAMPLE(OptionalsFinal, {&one, NULL, "here", NULL, &point, 5, &real});
    AGAIN(OptionalsFinal, {NULL, &two, NULL, "there", NULL, 6, NULL});
    SAMPLE(OptionalsAppendable, {&one, &octet, NULL, 3});
    AGAIN(OptionalsAppendable, {NULL, NULL, &large, 4});
    SAMPLE(OptionalsMutable, {&two, "b", &longs});
    AGAIN(OptionalsMutable, {NULL, NULL, NULL});
    SAMPLE(Derived, {{1, "base"}, 2.5});
    SAMPLE(MoreDerived, {{{1, "base"}, 2.5}, SEQ(corpus_Base, {2, "other"})});
    SAMPLE(MutableDerived, {{1}, 2});
    SAMPLE(Outside, {&one, &point, "out"});
    SAMPLE(Mixed, {{1, 2}, {3, 4}, {5, 6}, SEQ(corpus_MutablePoint, {7, 8}, {9, 10}), 11});
}

static void keyed(void)
{
    SAMPLE(KeyLong, {0x01020304, "rest"});
    SAMPLE(KeyTwo, {1, 0x1122334455667788, 5});
    SAMPLE(KeyString, {1, "a name longer than sixteen bytes", 2});
    AGAIN(KeyString, {1, "", 2});
    SAMPLE(KeyBounded, {"eight"});
    SAMPLE(KeyShort, {"eleven"});
    SAMPLE(KeyLarge, {1, 2, 3});
    SAMPLE(KeyOrder, {0x0a0b0c0d, 0x0102, 7});
    SAMPLE(KeyInner, {3, 4});
    SAMPLE(KeyNested, {9, {0x01020304, 5}, 6});
    SAMPLE(KeyPlainNested, {{1.5, 2.5}});
    SAMPLE(KeyAppendable, {1, 2, "s"});
    SAMPLE(KeyMutable, {1, "s", 2});
    SAMPLE(KeyArray, {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}, corpus_BLUE, 5});
    SAMPLE(KeyDerived, {{77, 78}, 1.25});
    SAMPLE(KeyEight, {1, 2.5});
}

static void real_world(void)
{
    uint8_t cloud[32], pixels[48];
    for (unsigned i = 0; i < sizeof cloud; i++)
        cloud[i] = (uint8_t)(i * 7);
    for (unsigned i = 0; i < sizeof pixels; i++)
        pixels[i] = (uint8_t)(255 - i);
    SAMPLE(PointCloud2_, {{{1700000000, 123456789}, "lidar_top"}, 1, 2,
                          SEQ(corpus_PointField_, {"x", 0, 7, 1}, {"y", 4, 7, 1}, {"z", 8, 7, 1}, {"intensity", 12, 7, 1}), false,
                          16, 32, {sizeof cloud, sizeof cloud, cloud, false}, true});
    corpus_Odometry_ odometry;
    memset(&odometry, 0, sizeof odometry);
    odometry.header = (corpus_Header_){{1700000001, 5}, "odom"};
    odometry.child_frame_id = "base_link";
    odometry.pose.pose = (corpus_Pose_){{1.25, -2.5, 0}, {0, 0, 0.7071067811865476, 0.7071067811865475}};
    odometry.twist.twist = (corpus_Twist_){{0.3, 0, 0}, {0, 0, -0.1}};
    for (int i = 0; i < 6; i++) {
        odometry.pose.covariance[7 * i] = 0.001 * (i + 1);
        odometry.twist.covariance[7 * i] = 1e-9;
    }
    put_type(&corpus_Odometry__desc);
    put_sample(&corpus_Odometry__desc, &odometry);
    SAMPLE(DiagnosticArray_, {{{1700000002, 6}, ""}, SEQ(corpus_DiagnosticStatus_,
                              {0, "battery", "OK", "bat-1", SEQ(corpus_KeyValue_, {"voltage", "24.1"}, {"current", "-3.2"})},
                              {2, "motor: left", "over temperature", "m\"1\"", NONE})});
    SAMPLE(Image_, {{{1700000003, 7}, "camera"}, 4, 4, "rgb8", 0, 12, {sizeof pixels, sizeof pixels, pixels, false}});
}

int main(void)
{
    printf("# Written by generate/corpus.c on Cyclone DDS; see generate/regenerate.sh\n");
    small_types();
    unions();
    extensible();
    keyed();
    real_world();
    return 0;
}
