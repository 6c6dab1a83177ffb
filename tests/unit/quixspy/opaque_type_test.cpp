#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "meridian/logger.h"
#include "quixspy/DynamicTypePlugin.h"
#include "quixspy/generated/DynamicTypeSupport.h"

namespace {

using Bytes = std::vector<unsigned char>;

/// A stream over bytes of the test, as the middleware hands it to a plugin.
struct Source {
    explicit Source(Bytes content) : bytes(std::move(content)) {
        QUIXCdrStream_set(&stream, reinterpret_cast<char*>(bytes.data()),
                          static_cast<DDS_UnsignedLong>(bytes.size()));
    }
    Bytes bytes;
    QUIXCdrStream stream{};
};

class Sample {
  public:
    Sample() { DynamicType_initialize(&record); }
    ~Sample() { DynamicType_finalize(&record); }
    Sample(const Sample&) = delete;
    Sample& operator=(const Sample&) = delete;

    bool copy(Bytes bytes, bool read_encapsulation = true) {
        Source source(std::move(bytes));
        return DynamicType_copy_cdr_stream(&record.stream, &source.stream, read_encapsulation);
    }
    Bytes content() const {
        const auto* first = reinterpret_cast<const unsigned char*>(record.stream->buffer);
        return Bytes(first, first + record.stream->bufferLength);
    }
    DynamicType record{};
};

TEST(OpaqueSample, KeepsTheBytesBehindTheEncapsulationHeader) {
    Sample sample;
    ASSERT_TRUE(sample.copy({0x00, 0x01, 0x00, 0x03, 1, 2, 3, 4, 5}));
    const QUIXCdrStream& stream = *sample.record.stream;
    EXPECT_EQ(sample.content(), Bytes({1, 2, 3, 4, 5}));
    EXPECT_EQ(stream.encapsulationKind, 1);
    EXPECT_EQ(stream.encapsulationOptions, 3);
    EXPECT_EQ(stream.endian, QUIX_CDR_ENDIAN_LITTLE);
    EXPECT_EQ(stream.currentPosition, stream.buffer);
    EXPECT_EQ(stream.alignmentOrigin, stream.buffer);
    EXPECT_EQ(stream.relativeBuffer, stream.buffer);
    EXPECT_EQ(stream.needByteSwap, stream.nativeEndian != QUIX_CDR_ENDIAN_LITTLE);
    EXPECT_EQ(stream.dirtyBit, 0u);
    EXPECT_EQ(stream.nestingLevel, 0u);
}

TEST(OpaqueSample, TakesTheKnownEncapsulationsOnly) {
    for (int kind = 0; kind < 256; ++kind) {
        Sample sample;
        const bool known = kind <= 3 || (kind >= 6 && kind <= 11);
        EXPECT_EQ(sample.copy({0, static_cast<unsigned char>(kind), 0, 0, 9}), known) << kind;
        EXPECT_FALSE(sample.copy({1, static_cast<unsigned char>(kind), 0, 0, 9})) << "above 255: " << kind;
    }
}

TEST(OpaqueSample, ByteOrderComesFromTheKindOrElseFromTheSource) {
    const auto order_of = [](unsigned char kind, DDS_Octet source_order) {
        Source source({0, kind, 0, 0, 9});
        QUIXCdrStream_setEndian(&source.stream, source_order);
        Sample sample;
        EXPECT_TRUE(DynamicType_copy_cdr_stream(&sample.record.stream, &source.stream, true));
        return sample.record.stream->endian;
    };
    for (DDS_Octet order : {QUIX_CDR_ENDIAN_BIG, QUIX_CDR_ENDIAN_LITTLE}) {
        EXPECT_EQ(order_of(0, order), QUIX_CDR_ENDIAN_BIG);
        EXPECT_EQ(order_of(1, order), QUIX_CDR_ENDIAN_LITTLE);
        EXPECT_EQ(order_of(6, order), QUIX_CDR_ENDIAN_BIG);
        EXPECT_EQ(order_of(7, order), QUIX_CDR_ENDIAN_LITTLE);
        for (int kind : {2, 3, 8, 9, 10, 11})
            EXPECT_EQ(order_of(static_cast<unsigned char>(kind), order), order) << kind;
    }
}

TEST(OpaqueSample, HeaderThatIsCutShortIsRefused) {
    Sample sample;
    for (size_t length = 0; length < 4; ++length)
        EXPECT_FALSE(sample.copy(Bytes(length, 0))) << length;
    EXPECT_TRUE(sample.copy(Bytes(4, 0)));
    EXPECT_EQ(sample.content(), Bytes());
}

TEST(OpaqueSample, WithoutHeaderKindAndOptionsComeFromTheSource) {
    Source source({1, 2, 3});
    source.stream.encapsulationKind = 6;
    source.stream.encapsulationOptions = 2;
    ++source.stream.currentPosition;
    Sample sample;
    ASSERT_TRUE(DynamicType_copy_cdr_stream(&sample.record.stream, &source.stream, false));
    EXPECT_EQ(sample.content(), Bytes({2, 3}));
    EXPECT_EQ(sample.record.stream->encapsulationKind, 6);
    EXPECT_EQ(sample.record.stream->encapsulationOptions, 2);
    EXPECT_EQ(sample.record.stream->endian, QUIX_CDR_ENDIAN_BIG);
}

TEST(OpaqueSample, ReusesItsBufferWhileTheNextCopyFits) {
    Sample sample;
    ASSERT_TRUE(sample.copy(Bytes(104, 1)) == false) << "kind 0x0101 is unknown";
    Bytes large(104, 0);
    Bytes small(54, 0);
    ASSERT_TRUE(sample.copy(large));
    const char* const buffer = sample.record.stream->buffer;
    ASSERT_TRUE(sample.copy(large));
    EXPECT_EQ(sample.record.stream->buffer, buffer);
    ASSERT_TRUE(sample.copy(small));
    EXPECT_EQ(sample.record.stream->buffer, buffer);
    EXPECT_EQ(sample.record.stream->bufferLength, 50u);
    ASSERT_TRUE(sample.copy(large));
    EXPECT_EQ(sample.record.stream->bufferLength, 100u);
}

TEST(OpaqueSample, TellsWhatItTakesAndGivesALargeBufferBack) {
    Sample sample;
    const size_t empty = DynamicTypePlugin_get_sample_memory(&sample.record);
    ASSERT_TRUE(sample.copy(Bytes(12, 0)));
    const size_t small = DynamicTypePlugin_get_sample_memory(&sample.record);
    EXPECT_GT(small, empty);
    EXPECT_LT(small, 250u);
    ASSERT_TRUE(sample.copy(Bytes(60000, 0)));
    EXPECT_GT(DynamicTypePlugin_get_sample_memory(&sample.record), 59000u);
    ASSERT_TRUE(sample.copy(Bytes(20000, 0)));
    EXPECT_GT(DynamicTypePlugin_get_sample_memory(&sample.record), 59000u) << "the buffer is kept";
    ASSERT_TRUE(sample.copy(Bytes(12, 0)));
    EXPECT_EQ(DynamicTypePlugin_get_sample_memory(&sample.record), small);
}

TEST(OpaqueSample, NullSourceEmptiesIt) {
    Sample sample;
    EXPECT_TRUE(DynamicType_copy_cdr_stream(&sample.record.stream, nullptr, true));
    EXPECT_EQ(sample.record.stream, nullptr);
    ASSERT_TRUE(sample.copy({0, 1, 0, 0, 7}));
    EXPECT_TRUE(DynamicType_copy_cdr_stream(&sample.record.stream, nullptr, true));
    EXPECT_EQ(sample.record.stream, nullptr);
}

TEST(OpaqueSample, OldAlignmentStartsFourBytesEarlier) {
    DynamicTypePlugin_g_use42Alignment = true;
    Sample sample;
    const bool copied = sample.copy({0, 1, 0, 0, 7});
    DynamicTypePlugin_g_use42Alignment = false;
    ASSERT_TRUE(copied);
    EXPECT_EQ(sample.record.stream->alignmentOrigin, sample.record.stream->buffer - 4);
}

TEST(OpaqueSample, CannotBeCopied) {
    Sample one;
    Sample two;
    EXPECT_FALSE(DynamicType_copy(&one.record, &two.record));
    EXPECT_EQ(DynamicTypeTypeSupport::copy_data(&one.record, &two.record), DDS_RETCODE_ERROR);
}

TEST(OpaquePlugin, RecordNamesItsOperations) {
    PRESTypePlugin* plain = DynamicTypePlugin_new();
    PRESTypePlugin* keyed = KeyedDynamicTypePlugin_new();
    ASSERT_NE(plain, nullptr);
    ASSERT_NE(keyed, nullptr);
    for (const PRESTypePlugin* plugin : {plain, keyed}) {
        EXPECT_EQ(plugin->version.major, 2);
        EXPECT_EQ(plugin->version.minor, 0);
        EXPECT_EQ(plugin->version.release, 0);
        EXPECT_EQ(plugin->version.revision, 0);
        EXPECT_EQ(plugin->languageConstant, 5640756u);
        EXPECT_EQ(plugin->typeCode, nullptr);
        EXPECT_EQ(plugin->getSerializedSampleMaxSize(nullptr, true, 1, 0), 65535u);
    }
    EXPECT_STREQ(plain->endpointTypeName, "DynamicType");
    EXPECT_STREQ(keyed->endpointTypeName, "KeyedDynamicType");
    EXPECT_EQ(plain->getKeyKind(), 0);
    EXPECT_EQ(keyed->getKeyKind(), 2);
    EXPECT_EQ(plain->getSerializedKeyMaxSize, nullptr);
    EXPECT_EQ(keyed->getSerializedKeyMaxSize(nullptr, true, 1, 0), 0u);
    EXPECT_EQ(plain->instanceToKeyHash, nullptr);
    PRESKeyHash hash;
    std::memset(&hash, 0xff, sizeof hash);
    EXPECT_TRUE(keyed->instanceToKeyHash(nullptr, &hash, nullptr));
    EXPECT_EQ(hash.length, 16u);
    for (DDS_Octet byte : hash.value)
        EXPECT_EQ(byte, 0);
    EXPECT_TRUE(keyed->instanceToKey(nullptr, nullptr, nullptr));
    EXPECT_TRUE(keyed->keyToInstance(nullptr, nullptr, nullptr));
    EXPECT_TRUE(keyed->serializedSampleToKeyHash(nullptr, nullptr, &hash, true, false));
    EXPECT_TRUE(plain->serialize(nullptr, nullptr, nullptr, true, 1, true));
    EXPECT_TRUE(plain->serializeKey(nullptr, nullptr, nullptr, true, 1, true));
    EXPECT_TRUE(plain->deserializeKey(nullptr, nullptr, nullptr, nullptr, true, true));
    EXPECT_EQ(keyed->deserializeKey, keyed->deserialize);
    DynamicTypePlugin_delete(plain);
    KeyedDynamicTypePlugin_delete(keyed);
}

TEST(OpaquePlugin, ReaderEndpointFillsSamples) {
    for (PRESTypePlugin* plugin : {DynamicTypePlugin_new(), KeyedDynamicTypePlugin_new()}) {
        PRESTypePluginParticipantData participant = plugin->onParticipantAttached(nullptr, nullptr);
        const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_READER, nullptr};
        PRESTypePluginEndpointData endpoint = plugin->onEndpointAttached(participant, &info);
        ASSERT_NE(endpoint, nullptr);
        void* sample = plugin->getSample(endpoint);
        Source source({0, 1, 0, 0, 42});
        bool drop = false;
        ASSERT_TRUE(plugin->deserialize(endpoint, &sample, &drop, &source.stream, true, true));
        EXPECT_EQ(static_cast<DynamicType*>(sample)->stream->buffer[0], 42);
        EXPECT_FALSE(plugin->copySample(endpoint, sample, sample));
        plugin->returnSample(endpoint, sample);
        plugin->onEndpointDetached(endpoint);
        plugin->onParticipantDetached(participant);
        DynamicTypePlugin_delete(plugin);
    }
}

TEST(OpaquePlugin, WriterEndpointHasBuffersAndKeyedOnesHaveKeys) {
    PRESTypePlugin* plugin = KeyedDynamicTypePlugin_new();
    const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_WRITER, nullptr};
    PRESTypePluginEndpointData endpoint = plugin->onEndpointAttached(nullptr, &info);
    char* buffer = plugin->getBuffer(endpoint, 65535);
    EXPECT_NE(buffer, nullptr);
    plugin->returnBuffer(endpoint, buffer);
    EXPECT_EQ(plugin->getBuffer(endpoint, 65536), nullptr);
    void* key = plugin->getKey(endpoint);
    EXPECT_NE(key, nullptr);
    plugin->returnKey(endpoint, key);
    plugin->onEndpointDetached(endpoint);
    KeyedDynamicTypePlugin_delete(plugin);
}

TEST(OpaquePlugin, ReadsOnlyTheHeaderWhenAskedTo) {
    Source big({0, 0, 0, 0, 1});
    EXPECT_TRUE(DynamicTypePlugin_deserialize(nullptr, nullptr, nullptr, &big.stream, true, false));
    EXPECT_EQ(big.stream.endian, QUIX_CDR_ENDIAN_BIG);
    EXPECT_EQ(QUIXCdrStream_remaining(&big.stream), 1u);
    Source unknown({0, 5, 0, 0, 1});
    EXPECT_FALSE(DynamicTypePlugin_deserialize(nullptr, nullptr, nullptr, &unknown.stream, true, false));
    Source cut({0});
    EXPECT_FALSE(DynamicTypePlugin_deserialize(nullptr, nullptr, nullptr, &cut.stream, true, false));
    EXPECT_TRUE(DynamicTypePlugin_deserialize(nullptr, nullptr, nullptr, &cut.stream, false, false));
}

std::string printed(void (*print)()) {
    ::testing::internal::CaptureStdout();
    print();
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

TEST(OpaqueSupport, PrintsThatItCannotPrint) {
    EXPECT_EQ(printed([] { DynamicTypePluginSupport_print_data(nullptr, "sample", 1); }),
              "   sample:\nNULL\n");
    EXPECT_EQ(printed([] {
                  DynamicType sample{};
                  DynamicTypePluginSupport_print_data(&sample, nullptr, 0);
              }),
              ":\nCan not print generic stream\n");
    EXPECT_EQ(printed([] {
                  KeyedDynamicType sample{};
                  KeyedDynamicTypePluginSupport_print_data(&sample, "x", 0);
              }),
              "x:\nCan not print opaque stream\n");
}

TEST(OpaqueSupport, MakesAndDropsRecords) {
    DynamicType* sample = DynamicTypeTypeSupport::create_data();
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(sample->stream, nullptr);
    EXPECT_EQ(DynamicTypeTypeSupport::initialize_data(sample), DDS_RETCODE_OK);
    EXPECT_EQ(DynamicTypeTypeSupport::finalize_data(sample), DDS_RETCODE_OK);
    EXPECT_EQ(DynamicTypeTypeSupport::delete_data(sample), DDS_RETCODE_OK);
    KeyedDynamicTypeKeyHolder* key = KeyedDynamicTypePluginSupport_create_key();
    ASSERT_NE(key, nullptr);
    KeyedDynamicTypePluginSupport_destroy_key(key);
    EXPECT_STREQ(KeyedDynamicTypeTypeSupport::get_type_name(), "KeyedDynamicType");
    EXPECT_EQ(KeyedDynamicTypeTypeSupport::get_typecode(), nullptr);
}

TEST(OpaqueSupport, RefusesWhatItDoesNotOffer) {
    DynamicType sample{};
    DDS_TypeAllocationParams_t no_memory;
    no_memory.allocate_memory = false;
    EXPECT_EQ(DynamicTypeTypeSupport::initialize_data(&sample, no_memory), DDS_RETCODE_ERROR);
    EXPECT_EQ(DynamicTypeTypeSupport::serialize_data_to_cdr_buffer(nullptr, nullptr, &sample), 2);
    EXPECT_EQ(DynamicTypeTypeSupport::deserialize_data_from_cdr_buffer(&sample, nullptr, 0), 2);
    EXPECT_EQ(DynamicTypeTypeSupport::data_to_string(&sample, nullptr, nullptr), 2);
    EXPECT_EQ(DynamicTypeTypeSupport::register_type(nullptr, "T"), DDS_RETCODE_ERROR);
    EXPECT_EQ(DynamicTypeTypeSupport::unregister_type(nullptr, "T"), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DynamicTypeDataReader::narrow(nullptr), nullptr);
    EXPECT_EQ(KeyedDynamicTypeDataWriter::narrow(nullptr), nullptr);
}

// -- Sequences: the same for both types

template <typename T>
class OpaqueSequence : public ::testing::Test {};
using SampleTypes = ::testing::Types<DynamicType, KeyedDynamicType>;
TYPED_TEST_SUITE(OpaqueSequence, SampleTypes, ); // the comma: Clang asks for the optional argument

#define EXPECT_REFUSED(expression, reason)                                                                  \
    do {                                                                                                    \
        ::testing::internal::CaptureStderr();                                                               \
        const bool result_ = static_cast<bool>(expression);                                                 \
        EXPECT_NE(::testing::internal::GetCapturedStderr().find(reason), std::string::npos) << #expression; \
        EXPECT_FALSE(result_) << #expression;                                                               \
    } while (false)

TYPED_TEST(OpaqueSequence, StartsEmptyAndOwning) {
    OpaqueTypeSeq<TypeParam> sequence;
    EXPECT_EQ(sequence.length(), 0);
    EXPECT_EQ(sequence.maximum(), 0);
    EXPECT_TRUE(sequence.has_ownership());
    EXPECT_EQ(sequence.get_absolute_maximum(), 2147483647);
    EXPECT_TRUE(sequence.get_element_allocation_params().allocate_memory);
}

TYPED_TEST(OpaqueSequence, MaximumAndLength) {
    OpaqueTypeSeq<TypeParam> sequence(3);
    EXPECT_EQ(sequence.maximum(), 3);
    EXPECT_EQ(sequence.length(), 0);
    EXPECT_TRUE(sequence.length(2));
    EXPECT_EQ(sequence[1].stream, nullptr) << "elements are initialised";
    EXPECT_REFUSED(sequence.length(4), "length");
    EXPECT_REFUSED(sequence.maximum(-1), "max size must be positive");
    EXPECT_TRUE(sequence.set_absolute_maximum(5));
    EXPECT_REFUSED(sequence.maximum(6), "new max cannot be larger than absolute maximum");
    EXPECT_REFUSED(sequence.set_absolute_maximum(2), "new absolute max cannot be smaller than max");
    EXPECT_REFUSED(sequence.maximum(4), "copy contiguous buffer");
    EXPECT_EQ(sequence.maximum(), 3) << "a failed change leaves everything as it was";
    EXPECT_EQ(sequence.length(), 2);
    EXPECT_TRUE(sequence.length(0));
    EXPECT_TRUE(sequence.ensure_length(4, 5));
    EXPECT_EQ(sequence.maximum(), 5);
    EXPECT_REFUSED(sequence.ensure_length(3, 2), "length");
}

TYPED_TEST(OpaqueSequence, IndexIsChecked) {
    OpaqueTypeSeq<TypeParam> sequence(2);
    sequence.length(1);
    EXPECT_NE(sequence.get_reference(0), nullptr);
    EXPECT_REFUSED(sequence.get_reference(1), "index out of bounds");
    EXPECT_REFUSED(sequence.get_reference(-1), "index out of bounds");
    EXPECT_REFUSED(sequence.get(1).stream, "index out of bounds");
}

TYPED_TEST(OpaqueSequence, BorrowsContiguousBuffers) {
    TypeParam buffer[3] = {};
    OpaqueTypeSeq<TypeParam> sequence;
    EXPECT_REFUSED(sequence.loan_contiguous(buffer, -1, 3), "negative argument");
    EXPECT_REFUSED(sequence.loan_contiguous(nullptr, 0, 3), "NULL buffer can't have non-zero maximum");
    sequence.set_absolute_maximum(2);
    EXPECT_REFUSED(sequence.loan_contiguous(buffer, 0, 3), "new max cannot be larger than absolute maximum");
    sequence.set_absolute_maximum(10);
    EXPECT_REFUSED(sequence.unloan(), "buffer must be loaned");
    ASSERT_TRUE(sequence.loan_contiguous(buffer, 2, 3));
    EXPECT_FALSE(sequence.has_ownership());
    EXPECT_EQ(sequence.get_contiguous_buffer(), buffer);
    EXPECT_EQ(&sequence[1], &buffer[1]);
    EXPECT_REFUSED(sequence.maximum(5), "buffer must not be loaned");
    EXPECT_REFUSED(sequence.loan_contiguous(buffer, 2, 3), "max size must be 0");
    EXPECT_TRUE(sequence.unloan());
    EXPECT_TRUE(sequence.has_ownership());
    EXPECT_EQ(sequence.maximum(), 0);
}

TYPED_TEST(OpaqueSequence, BorrowsDiscontiguousBuffers) {
    TypeParam one{};
    TypeParam two{};
    TypeParam* pointers[2] = {&two, &one};
    OpaqueTypeSeq<TypeParam> sequence;
    ASSERT_TRUE(sequence.loan_discontiguous(pointers, 2, 2));
    EXPECT_EQ(&sequence[0], &two);
    EXPECT_EQ(sequence.get_discontiguous_buffer(), pointers);
    EXPECT_TRUE(sequence.unloan());
    OpaqueTypeSeq<TypeParam> owning(1);
    EXPECT_REFUSED(owning.loan_discontiguous(pointers, 2, 2), "max size must be 0");
}

TYPED_TEST(OpaqueSequence, CopiesNothingButEmptySequences) {
    TypeParam buffer[2] = {};
    OpaqueTypeSeq<TypeParam> source;
    OpaqueTypeSeq<TypeParam> target;
    EXPECT_TRUE(target.copy(source));
    ASSERT_TRUE(source.loan_contiguous(buffer, 2, 2));
    EXPECT_FALSE(target.copy(source));
    EXPECT_REFUSED(target.from_array(buffer, 2), "copy array sequence");
    TypeParam out[2] = {};
    EXPECT_REFUSED(source.to_array(out, 2), "copying array sequence");
    EXPECT_TRUE(source.unloan());
}

TYPED_TEST(OpaqueSequence, AllocationIsChosenBeforeThereAreElements) {
    OpaqueTypeSeq<TypeParam> sequence;
    DDS_TypeAllocationParams_t params;
    params.allocate_memory = false;
    EXPECT_TRUE(sequence.set_element_pointers_allocation(false));
    EXPECT_FALSE(sequence.get_element_pointers_allocation());
    EXPECT_TRUE(sequence.set_element_allocation_params(params));
    EXPECT_REFUSED(sequence.maximum(1), "allocate_memory must be true");
    params.allocate_memory = true;
    EXPECT_TRUE(sequence.set_element_allocation_params(params));
    EXPECT_TRUE(sequence.maximum(1));
    EXPECT_REFUSED(
        sequence.set_element_allocation_params(params),
        "Member allocation parameters can be configured only when the maximum size of the sequence is 0");
    EXPECT_REFUSED(
        sequence.set_element_pointers_allocation(true),
        "Pointers allocation policy can be configured only when the maximum size of the sequence is 0");
}

TYPED_TEST(OpaqueSequence, KeepsTheReadersToken) {
    OpaqueTypeSeq<TypeParam> sequence;
    int one = 0;
    int two = 0;
    sequence.set_read_tokenI(&one, &two);
    void* first = nullptr;
    void* second = nullptr;
    EXPECT_TRUE(sequence.get_read_tokenI(&first, &second));
    EXPECT_EQ(first, &one);
    EXPECT_EQ(second, &two);
    EXPECT_REFUSED(sequence.get_read_tokenI(nullptr, &second), "token (NULL)");
}

TEST(OpaqueSequenceFunctions, DoWhatTheMembersDo) {
    alignas(DynamicTypeSeq) char raw[sizeof(DynamicTypeSeq)];
    std::memset(raw, 0x5a, sizeof raw); // not initialised: every operation starts with an empty sequence
    auto* sequence = reinterpret_cast<DynamicTypeSeq*>(raw);
    EXPECT_EQ(DynamicTypeSeq_get_length(sequence), 0);
    EXPECT_TRUE(DynamicTypeSeq_has_ownership(sequence));
    EXPECT_TRUE(DynamicTypeSeq_set_maximum(sequence, 2));
    EXPECT_TRUE(DynamicTypeSeq_ensure_length(sequence, 1, 2));
    EXPECT_EQ(DynamicTypeSeq_get_maximum(sequence), 2);
    EXPECT_EQ(DynamicTypeSeq_get_reference(sequence, 0), DynamicTypeSeq_get_contiguous_buffer(sequence));
    EXPECT_EQ(DynamicTypeSeq_get(sequence, 0).stream, nullptr);
    EXPECT_TRUE(DynamicTypeSeq_finalize(sequence));

    KeyedDynamicTypeSeq keyed;
    EXPECT_TRUE(KeyedDynamicTypeSeq_initialize(&keyed));
    EXPECT_TRUE(KeyedDynamicTypeSeq_set_absolute_maximum(&keyed, 7));
    EXPECT_EQ(KeyedDynamicTypeSeq_get_absolute_maximum(&keyed), 7);
    EXPECT_FALSE(KeyedDynamicTypeSeq_unloan(&keyed));
}

} // namespace
