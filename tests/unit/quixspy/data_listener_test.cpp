// The listener of a topic: what it takes, counts and says, and that its writers may change meanwhile.

#include "quixspy/quixSpyDataListener.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <thread>

#include "quixspy/fixture.h"
#include "quixspy/generated/DynamicTypeSupport.h"
#include "quixspy/raw_sample.h"
#include "rtps/wire/byte_writer.h"
#include "rtps/wire/encapsulation.h"
#include "support/fake_entities.h"
#include "support/test_output.h"
#include "support/type_documents.h"
#include "support/verbosity_guard.h"
#include "types/data/dynamic_sample.h"

namespace {

/// Lends what a test queued; the samples are all one empty one, as they are not looked at.
class FakeUntypedReader : public FakeEntity<DDSUntypedDataReader> {
  public:
    ~FakeUntypedReader() override = default;
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t set_qos(const DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDSTopicDescription* get_topicdescription() override { return topic; }
    DDSSubscriber* get_subscriber() override { return nullptr; }
    DDS_ReturnCode_t get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData&,
                                                              const DDS_InstanceHandle_t&) override {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    DDSReadCondition* create_readcondition(DDS_SampleStateMask, DDS_ViewStateMask,
                                           DDS_InstanceStateMask) override {
        return nullptr;
    }
    DDS_ReturnCode_t delete_readcondition(DDSReadCondition*) override { return DDS_RETCODE_ERROR; }
    DDS_ReturnCode_t read_or_take_untyped(DDS_Boolean take, const DDSSampleSelection& selection,
                                          const DDSSampleSequenceState& sequence, void*** taken,
                                          DDS_Long* count, DDS_SampleInfoSeq& out) override {
        takes_everything = take && sequence.maximum == 0 && selection.max_samples == DDS_LENGTH_UNLIMITED &&
                           selection.sample_states == DDS_ANY_SAMPLE_STATE &&
                           selection.view_states == DDS_ANY_VIEW_STATE &&
                           selection.instance_states == DDS_ANY_INSTANCE_STATE;
        if (take_result != DDS_RETCODE_OK)
            return take_result;
        if (infos.empty())
            return DDS_RETCODE_NO_DATA;
        samples.assign(infos.size(), &empty);
        pointers.clear();
        for (DDS_SampleInfo& info : infos)
            pointers.push_back(&info);
        *taken = samples.data();
        *count = static_cast<DDS_Long>(infos.size());
        out.loan_discontiguous(pointers.data(), *count);
        ++loans;
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t return_loan_untyped(void**, DDS_Long, DDS_SampleInfoSeq& out) override {
        if (on_return)
            on_return();
        out.unloan();
        infos.clear();
        --loans;
        return return_result;
    }
    DDS_ReturnCode_t get_key_value_untyped(void*, const DDS_InstanceHandle_t&) override {
        return DDS_RETCODE_UNSUPPORTED;
    }
    DDS_InstanceHandle_t lookup_instance_untyped(const void*) override { return DDS_HANDLE_NIL; }

    std::vector<DDS_SampleInfo> infos;
    DDS_ReturnCode_t take_result = DDS_RETCODE_OK;
    DDS_ReturnCode_t return_result = DDS_RETCODE_OK;
    DDSTopicDescription* topic = nullptr;
    int loans = 0;
    bool takes_everything = false;
    std::function<void()> on_return;

  private:
    KeyedDynamicType empty{};
    std::vector<void*> samples;
    std::vector<DDS_SampleInfo*> pointers;
};

/// Remembers the calls; its answers are set by the test.
class FakeSemaphore : public QUIXSemaphore {
  public:
    ~FakeSemaphore() override = default;
    bool give() override {
        calls += "give ";
        return gives;
    }
    bool take(const DDS_Duration_t& timeout) override {
        calls += "take(" + std::to_string(timeout.sec) + "." + std::to_string(timeout.nanosec) + ") ";
        return takes;
    }

    std::string calls;
    bool gives = true;
    bool takes = true;
};

constexpr RtpsGuid kWriter{0x01020304, 0x05060708, 0x090a0b0c, 0x0d0e0f02};

DDS_SampleInfo sample(DDS_InstanceStateMask state = DDS_ALIVE_INSTANCE_STATE, bool valid = true) {
    DDS_SampleInfo info;
    info.source_timestamp = {44730, 0};
    info.instance_state = state;
    info.valid_data = valid;
    info.publication_handle = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 2}, 16, true};
    return info;
}

class DataListener : public ::testing::TestWithParam<bool> {
  protected:
    DataListener() {
        settings.outputSemaphore = &semaphore;
        settings.output = &test_output();
        settings.fields.isKeyed = GetParam();
        reader = GetParam() ? static_cast<DDSDataReader*>(KeyedDynamicTypeDataReader::createI(&untyped))
                            : DynamicTypeDataReader::createI(&untyped);
    }
    ~DataListener() override {
        if (GetParam())
            KeyedDynamicTypeDataReader::destroyI(reader);
        else
            DynamicTypeDataReader::destroyI(reader);
    }
    QuixSpyDataListener& listener() {
        if (!listener_)
            listener_ = std::make_unique<QuixSpyDataListener>("Circle", "ShapeType", nullptr, settings);
        return *listener_;
    }
    std::string available() {
        return printed_by([&] { listener().on_data_available(reader); });
    }

    VerbosityGuard verbosity{1};
    FakeSemaphore semaphore;
    FakeUntypedReader untyped;
    DDSDataReader* reader;
    QuixSpyDataListenerSettings settings;

  private:
    std::unique_ptr<QuixSpyDataListener> listener_;
};

const std::string kUnknown = " from unknown ip      : topic=\"Circle\" type=\"ShapeType\"\n";
const std::string kKnown = " from 10.1.2.3        : topic=\"Circle\" type=\"ShapeType\"\n";
constexpr const char* kAround = "take(3.0) give ";

INSTANTIATE_TEST_SUITE_P(Keyed, DataListener, ::testing::Bool(),
                         [](const auto& one) { return one.param ? "Yes" : "No"; });

} // namespace

TEST_P(DataListener, ContentsOfOpaqueSamplesComeFromTheTypeCode) {
    meridian::types::TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load("types",
                               "<dds><types><struct name=\"P\"><member name=\"x\" type=\"int16\"/>"
                               "<member name=\"y\" type=\"int16\"/></struct></types></dds>",
                               error))
        << error;
    test::RawSample raw;
    const auto type = documents.find("P");
    for (const PrintSample wanted : {PRINT_SAMPLE_NONE, PRINT_SAMPLE_PLAIN, PRINT_SAMPLE_COMPACT}) {
        settings.printSample = wanted;
        ASSERT_TRUE(raw.set({0, 1, 0, 0, 5, 0, 0xff, 0xff})); // it can be walked once
        DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
        QuixSpyDataListener known("Circle", "ShapeType",
                                  DDS_TypeCodeFactory::get_instance()->clone_tc(type.get(), exception),
                                  settings);
        // A sender that brings about the opaque type breaks no line where contents are to stand on it.
        const std::string contents = wanted == PRINT_SAMPLE_NONE    ? ""
                                     : wanted == PRINT_SAMPLE_PLAIN ? "\n\nx: 5\ny: -1"
                                                                    : "to_string failed with retCode 2\n";
        const std::string line = "12:25:30 New data         " + kUnknown;
        EXPECT_EQ(printed_by([&] { known.print_user_data(sample(), &raw.record); }),
                  line.substr(0, line.size() - 1) + contents + "\n");
        EXPECT_EQ(printed_by([&] {
                      known.print_user_data(sample(DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, false), nullptr);
                  }),
                  "12:25:30 Disposed instance" + kUnknown);
    }
    // Without a type code there is nothing to say.
    settings.printSample = PRINT_SAMPLE_PLAIN;
    EXPECT_EQ(printed_by([&] { listener().print_user_data(sample(), &raw.record); }),
              "12:25:30 New data         " + kUnknown);
}

TEST_P(DataListener, SaysBehindTheFieldsThatContentsCannotBeShown) {
    settings.useDynamicData = true;
    const DDS_DynamicData nothing;
    const std::string line = "12:25:30 New data         " + kUnknown;
    const std::string fields = line.substr(0, line.size() - 1);
    for (const auto& [wanted, message] :
         {std::pair<PrintSample, const char*>{PRINT_SAMPLE_COMPACT, "to_string failed with retCode 4\n"},
          {PRINT_SAMPLE_PLAIN, "\nprint failed with retCode 4\n"}}) {
        settings.printSample = wanted;
        QuixSpyDataListener dynamic("Circle", "ShapeType", nullptr, settings);
        const auto print = [&] { dynamic.print_user_data(sample(), &nothing); };
        EXPECT_EQ(printed_by(print), fields + message + "\n");
        const VerbosityGuard silent(0);
        EXPECT_EQ(printed_by(print), fields + (wanted == PRINT_SAMPLE_PLAIN ? "\n\n" : "\n"));
    }
}

TEST_P(DataListener, ShowsSamplesThatAreTooLargeWithoutContents) {
    settings.useDynamicData = true;
    DDS_DynamicDataTypeProperty_t limits = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT;
    limits.serialization.max_size_serialized = 7;
    DDS_DynamicData large;
    meridian::types::TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load("doc", "<types><struct name='T'/></types>", error)) << error;
    large.impl().assign(
        std::make_shared<meridian::types::DynamicContext>(documents.find("T"), "Circle", limits),
        meridian::rtps::ByteBuffer(8));
    for (const PrintSample wanted : {PRINT_SAMPLE_COMPACT, PRINT_SAMPLE_PLAIN}) {
        settings.printSample = wanted;
        QuixSpyDataListener dynamic("Circle", "ShapeType", nullptr, settings);
        EXPECT_EQ(printed_by([&] { dynamic.print_user_data(sample(), &large); }),
                  "12:25:30 New data         " + kUnknown);
        EXPECT_EQ(dynamic.dataSampleCount, 1u);
    }
}

TEST_P(DataListener, LargeContentsStandOnTheirLine) {
    settings.useDynamicData = true;
    meridian::types::TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load(
        "doc",
        "<types><struct name='T'><member name='o' sequenceMaxLength='-1' type='byte'/></struct></types>",
        error))
        << error;
    const auto context = std::make_shared<meridian::types::DynamicContext>(documents.find("T"), "Circle");
    const std::string line = "12:25:30 New data         " + kUnknown;
    for (const uint32_t count : {5000u, 9000u, 300000u, 3000000u}) {
        meridian::rtps::ByteBuffer bytes;
        meridian::rtps::write_encapsulation(bytes, meridian::rtps::Encoding::cdr,
                                            meridian::rtps::Endianness::little);
        meridian::rtps::ByteWriter(bytes, meridian::rtps::Endianness::little).write(count);
        bytes.resize(bytes.size() + count, 9);
        DDS_DynamicData large;
        large.impl().assign(context, bytes);
        std::string compact = line.substr(0, line.size() - 1) + " sample={\"o\":[9";
        for (uint32_t i = 1; i < count; ++i)
            compact += ",9";
        compact += "]}\n";
        settings.printSample = PRINT_SAMPLE_COMPACT;
        QuixSpyDataListener listener("Circle", "ShapeType", nullptr, settings);
        EXPECT_TRUE(printed_by([&] {
                        listener.print_user_data(sample(), &large);
                        listener.print_user_data(sample(), nullptr);
                    }) == compact + line)
            << count;
        settings.printSample = PRINT_SAMPLE_PLAIN;
        QuixSpyDataListener plain("Circle", "ShapeType", nullptr, settings);
        const std::string text = printed_by([&] { plain.print_user_data(sample(), &large); });
        EXPECT_EQ(text.substr(0, line.size() + 6), line + "o:\n   ") << count;
        EXPECT_EQ(text.substr(text.size() - 5), " 09\n\n") << count;
    }
}

TEST_P(DataListener, ReportsAllSamplesInOrder) {
    DDS_SampleInfo again = sample();
    again.view_state = DDS_NOT_NEW_VIEW_STATE;
    again.source_timestamp.sec = 44731;
    untyped.infos = {sample(), again, sample(DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, false),
                     sample(DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE, false)};
    EXPECT_EQ(available(), "12:25:30 New data         " + kUnknown +
                               (GetParam() ? "12:25:31 Modified instance" : "12:25:31 New data         ") +
                               kUnknown + "12:25:30 Disposed instance" + kUnknown +
                               "12:25:30 No writers       " + kUnknown);
    EXPECT_TRUE(untyped.takes_everything);
    EXPECT_EQ(untyped.loans, 0);
    EXPECT_EQ(semaphore.calls, kAround);
    EXPECT_EQ(listener().dataSampleCount, 2U);
    EXPECT_EQ(listener().disposeSampleCount, 1U);
    EXPECT_EQ(listener().noWritersSampleCount, 1U);
    EXPECT_EQ(available(), "") << "nothing left";
    EXPECT_EQ(semaphore.calls, std::string(kAround) + kAround);
}

TEST_P(DataListener, WritesLinesTogetherUnlessItIsToATerminal) {
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(grantpt(master) + unlockpt(master), 0);
    char name[64];
    ASSERT_EQ(ptsname_r(master, name, sizeof name), 0);
    const int slave = open(name, O_RDWR | O_NOCTTY);
    for (const bool is_terminal : {false, true}) {
        const int reading = is_terminal ? master : pipe_ends[0];
        fcntl(reading, F_SETFL, O_NONBLOCK);
        // What a terminal is given arrives a little later.
        const auto lines_written = [reading](int expected) {
            int lines = 0;
            char text[1000];
            pollfd wanted{reading, POLLIN, 0};
            do {
                const ssize_t count = read(reading, text, sizeof text);
                lines += static_cast<int>(std::count(text, text + std::max<ssize_t>(count, 0), '\n'));
            } while (lines < expected && poll(&wanted, 1, 20000) > 0);
            return lines;
        };
        QuixAgentOutput output(is_terminal ? slave : pipe_ends[1]);
        settings.output = &output;
        QuixSpyDataListener writing("Circle", "ShapeType", nullptr, settings);
        int before_the_end = 0;
        for (int take = 0; take < 2; ++take) {
            untyped.infos = {sample(), sample()};
            untyped.on_return = [&] { before_the_end += lines_written(is_terminal ? 2 : 0); };
            writing.on_data_available(reader);
        }
        untyped.on_return = nullptr;
        before_the_end += lines_written(0);
        EXPECT_EQ(before_the_end, is_terminal ? 4 : 0);
        writing.on_deliveries_end();
        EXPECT_EQ(lines_written(is_terminal ? 0 : 4), is_terminal ? 0 : 4);
        writing.print_user_data(sample(), nullptr);
        EXPECT_EQ(lines_written(1), 1) << "called by itself";
    }
    for (const int descriptor : {pipe_ends[0], pipe_ends[1], master, slave})
        close(descriptor);
}

TEST_P(DataListener, DropsAndCountsWhatItHasTakenWhenTheRunEnds) {
    QuixSpyEnding ending([] { return false; });
    settings.ending = &ending;
    untyped.infos = {sample(), sample()};
    EXPECT_EQ(available(), "12:25:30 New data         " + kUnknown + "12:25:30 New data         " + kUnknown);

    // An output that takes nothing any more.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        QuixAgentOutput full(ends[1]);
        full.wait_while([&ending] { return ending.keeps_waiting(); });
        ending.begin();
        full.put(std::string(200000, '\n'));
        EXPECT_TRUE(full.is_behind());
        QuixSpyEnding over([] { return true; });
        settings.output = &full;
        settings.ending = &over;
        QuixSpyDataListener late("Circle", "ShapeType", nullptr, settings);
        untyped.infos = {sample(), sample(), sample()};
        late.on_data_available(reader);
        EXPECT_EQ(over.dropped(), 3U);
        EXPECT_EQ(untyped.loans, 0);
        EXPECT_EQ(late.dataSampleCount, 0U) << "the statistics count lines";
        untyped.infos = {sample(), sample()};
        late.drop_waiting(over);
        EXPECT_EQ(over.dropped(), 5U);
    }
    close(ends[0]);
    close(ends[1]);

    untyped.infos = {sample()};
    EXPECT_EQ(available(), "");
    EXPECT_EQ(untyped.infos.size(), 1U) << "what comes after the end stays";
    EXPECT_EQ(ending.dropped(), 0U);
}

TEST_P(DataListener, CountsDataWhateverTheInstanceState) {
    untyped.infos = {sample(DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, true),
                     sample(DDS_ALIVE_INSTANCE_STATE, false), sample(3, false)};
    EXPECT_EQ(available(), "12:25:30 Disposed instance" + kUnknown + "12:25:30 New data         " + kUnknown +
                               "12:25:30" + kUnknown);
    EXPECT_EQ(listener().dataSampleCount, 1U);
    EXPECT_EQ(listener().disposeSampleCount, 0U);
    EXPECT_EQ(listener().noWritersSampleCount, 0U);
}

TEST_P(DataListener, NamesTheWriterItKnows) {
    settings.fields.showEntityName = settings.fields.showPartition = true;
    ASSERT_TRUE(listener().record_writer(kWriter, "10.1.2.3", entity_name("r", "n"), string_seq({"A", "B"}),
                                         string_seq({"P"})));
    const std::string from =
        "12:25:30 New data          from 10.1.2.3        : topic=\"Circle\" type=\"ShapeType\"";
    untyped.infos = {sample()};
    EXPECT_EQ(available(), from + " name=\"r:n\" DP partition=\"P\" S partition=\"A,B\"\n");
    ASSERT_TRUE(listener().record_writer(kWriter, "10.1.2.3", entity_name(nullptr, nullptr), {}, {}));
    untyped.infos = {sample()};
    EXPECT_EQ(available(), from + "\n") << "known anew";
    untyped.infos = {sample()};
    untyped.infos[0].publication_handle.keyHash[15] = 3;
    EXPECT_EQ(available(), "12:25:30 New data         " + kUnknown) << "another writer of the participant";
}

/// Records writers by number, and looks at the lines of their samples.
class WritersOfTopic : public DataListener {
  protected:
    void record(uint32_t number, const std::string& partition = "") {
        RtpsGuid guid = kWriter;
        guid.hostId = number;
        ASSERT_TRUE(listener().record_writer(guid, "10.1.2.3", {}, string_seq({partition.c_str()}), {}));
    }
    bool knows(uint32_t number) {
        untyped.infos = {sample()};
        for (unsigned i = 0; i < 4; ++i)
            untyped.infos[0].publication_handle.keyHash[i] = static_cast<DDS_Octet>(number >> (24 - 8 * i));
        return available().find("unknown ip") == std::string::npos;
    }
};

INSTANTIATE_TEST_SUITE_P(Keyed, WritersOfTopic, ::testing::Bool(),
                         [](const auto& one) { return one.param ? "Yes" : "No"; });

// Writers come and go on a topic as long as the tool runs.
TEST_P(WritersOfTopic, TheOneThatWroteLongestAgoIsForgotten) {
    record(kWriter.hostId);
    for (uint32_t number = 1; number < 4096; ++number)
        record(0x02000000 + number);
    untyped.infos = {sample()};
    available(); // kWriter writes
    record(0x03000000);
    EXPECT_TRUE(knows(kWriter.hostId));
    EXPECT_FALSE(knows(0x02000001));
    EXPECT_TRUE(knows(0x02000002));
    EXPECT_TRUE(knows(0x03000000));
}

TEST_P(WritersOfTopic, LongNamesAndPartitionsLeaveRoomForFewer) {
    const std::string partition(60000, 'p');
    record(1);
    for (uint32_t number = 2; number < 100; ++number) {
        record(number, partition);
        record(number, partition); // again: it counts once
    }
    EXPECT_FALSE(knows(1));
    EXPECT_FALSE(knows(80));
    for (uint32_t number = 92; number < 100; ++number)
        EXPECT_TRUE(knows(number)) << number;
    record(99, partition + partition + partition + partition + partition + partition + partition + partition +
                   partition + partition);
    EXPECT_TRUE(knows(99)) << "one is always known";
}

TEST_P(DataListener, CannotKnowTheUnknownGuid) {
    bool recorded = true;
    EXPECT_EQ(printed_by([&] { recorded = listener().record_writer({}, "10.1.2.3", {}, {}, {}); }),
              "ferret: Error initializing QuixSpyEndpointInfo\n");
    EXPECT_FALSE(recorded);
}

TEST_P(DataListener, ShowsWhatItsSettingsSay) {
    settings.topicWidth = 3;
    settings.typeWidth = 5;
    settings.fields.showHandle = settings.fields.showSampleFlags = settings.fields.showSampleIdentity = true;
    untyped.infos = {sample()};
    untyped.infos[0].flag = 8;
    untyped.infos[0].sample_identity.sequence_number = {0, 9};
    EXPECT_EQ(available(),
              std::string("12:25:30 New data          from unknown ip      : topic=\"Cir\" type=\"Shape\"") +
                  (GetParam() ? " key=\"00000000.00000000.00000000.00000000\""
                                " guid=\"0x01020304,0x05060708,0x090A0B0C:0x0D0E0F02\""
                              : "") +
                  " flags=\"L\" virtual_sn=(0, 9)\n");
}

TEST_P(DataListener, LeavesSamplesWhenTheOutputIsBusy) {
    untyped.infos = {sample()};
    semaphore.takes = false;
    EXPECT_EQ(available(), "quixpy error taking semaphore\n");
    EXPECT_EQ(semaphore.calls, kAround) << "given all the same";
    EXPECT_EQ(untyped.infos.size(), 1U);
    semaphore.gives = false;
    EXPECT_EQ(available(), "quixpy error taking semaphore\nferret fail giving semaphore\n");
    semaphore.takes = true;
    EXPECT_EQ(available(), "12:25:30 New data         " + kUnknown + "ferret fail giving semaphore\n");

    const VerbosityGuard silent(0);
    semaphore.takes = false;
    EXPECT_EQ(available(), "");
}

TEST_P(DataListener, SaysWhatFails) {
    EXPECT_EQ(printed_by([&] { listener().on_data_available(nullptr); }), "DataReader narrow error\n");
    EXPECT_EQ(semaphore.calls, kAround);
    untyped.infos = {sample()};
    untyped.take_result = DDS_RETCODE_OUT_OF_RESOURCES;
    EXPECT_EQ(available(), "take error 5\n");
    EXPECT_EQ(semaphore.calls, std::string(kAround) + kAround);
    untyped.take_result = DDS_RETCODE_OK;
    untyped.return_result = DDS_RETCODE_PRECONDITION_NOT_MET;
    EXPECT_EQ(available(), "12:25:30 New data         " + kUnknown + "return loan error 4\n");

    const VerbosityGuard silent(0);
    untyped.infos = {sample()};
    EXPECT_EQ(available(), "12:25:30 New data         " + kUnknown) << "lines are printed at every verbosity";
    untyped.take_result = DDS_RETCODE_ERROR;
    EXPECT_EQ(available(), "");
    EXPECT_EQ(printed_by([&] { listener().on_data_available(nullptr); }), "");
}

TEST_P(DataListener, SaysThatADeadlineWasMissed) {
    DDS_RequestedDeadlineMissedStatus status;
    status.total_count = 7;
    FakeTopic topic("Circle", "ShapeType");
    const auto told = [&](DDSDataReader* from) {
        return printed_by([&] { listener().on_requested_deadline_missed(from, status); });
    };
    EXPECT_EQ(told(reader), "ferret: Deadline number 000007 missed.\n");
    untyped.topic = &topic;
    EXPECT_EQ(told(reader), "ferret: Deadline number 000007 missed for Topic \"Circle\".\n");
    status.total_count = 12345678;
    EXPECT_EQ(told(reader), "ferret: Deadline number 12345678 missed for Topic \"Circle\".\n");
    EXPECT_EQ(told(nullptr), "ferret: Deadline number 12345678 missed.\n");
    const VerbosityGuard silent(0);
    EXPECT_EQ(told(reader), "");
}

TEST_P(DataListener, SaysWhichPoliciesAreIncompatible) {
    FakeTopic topic("Circle", "ShapeType");
    const auto told = [&](std::initializer_list<DDS_QosPolicyId_t> policies) {
        DDS_RequestedIncompatibleQosStatus status;
        for (const DDS_QosPolicyId_t policy : policies)
            status.policies.append({policy, 1});
        return printed_by([&] { listener().on_requested_incompatible_qos(reader, status); });
    };
    EXPECT_EQ(told({4}),
              "ferret: Matched Topic has incompatible deadline QoS.\n"
              "ferret: ... will not receive updates from it\n");
    untyped.topic = &topic;
    EXPECT_EQ(told({4}),
              "ferret: Matched Topic \"Circle\" has incompatible deadline QoS.\n"
              "ferret: ... will not receive updates from it\n");
    EXPECT_EQ(told({11}), "") << "the logger names it";
    EXPECT_EQ(told({11, 4}), "ferret: Matched topic has incompatible QoS policies: [ 11, 4, ];\n");
    EXPECT_EQ(told({}), "ferret: Matched topic has incompatible QoS policies: [ ];\n");
    const VerbosityGuard silent(0);
    EXPECT_EQ(told({4}), "");
    EXPECT_EQ(told({4, 11}), "");
}

TEST_P(DataListener, TellsOfMatchesToThoseWhoWantToKnow) {
    DDS_SubscriptionMatchedStatus status;
    status.current_count = 2;
    status.current_count_change = -1;
    status.total_count = 9;
    const auto told = [&] { return printed_by([&] { listener().on_subscription_matched(reader, status); }); };
    EXPECT_EQ(told(), "");
    const VerbosityGuard talkative(2);
    EXPECT_EQ(told(), "ferret: Matched DataWriters change (-1). Matched DataWriter tally is: 2\n");
    EXPECT_EQ(printed_by([&] { listener().on_liveliness_changed(reader, {}); }), "");
}

TEST_P(DataListener, KnowsAndForgetsNothingWhileSamplesCome) {
    // For the thread sanitizer: writers and statistics on this thread, samples on the other.
    constexpr unsigned kRounds = 300;
    const std::string printed = printed_by([&] {
        QuixSpyDataListener& shared = listener();
        std::thread delivery([&] {
            for (unsigned i = 0; i < kRounds; ++i) {
                untyped.infos = {sample(), sample(DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, false)};
                shared.on_data_available(reader);
            }
        });
        uint64_t seen = 0;
        for (unsigned i = 0; i < kRounds; ++i) {
            RtpsGuid guid = kWriter;
            guid.entityId += i % 10 << 8;
            shared.record_writer(guid, "10.1.2.3", entity_name("role", "name"), string_seq({"A"}), {});
            const uint64_t now = shared.dataSampleCount;
            EXPECT_GE(now, seen);
            seen = now;
        }
        delivery.join();
    });
    EXPECT_EQ(listener().dataSampleCount, kRounds);
    EXPECT_EQ(listener().disposeSampleCount, kRounds);
    size_t lines = 0;
    for (size_t at = 0; at < printed.size(); ++lines) {
        const size_t end = printed.find('\n', at) + 1;
        const std::string line = printed.substr(at + 26, end - at - 26);
        EXPECT_TRUE(line == kKnown || line == kUnknown) << line;
        at = end;
    }
    EXPECT_EQ(lines, 2 * kRounds);
}
