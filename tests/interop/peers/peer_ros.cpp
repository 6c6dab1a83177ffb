// Publishes ROS 2 messages as the middleware of ROS 2 does on Fast DDS: the names of types are announced,
// the types are not, and the bytes come from Fast CDR. Prints what it writes as JSON. Reads one command per
// line:
//
//   writer NAME     one of the messages at the end of this file, on its topic
//   matched NAME    waits until a reader of another participant is there
//   write NAME      writes the message and prints "sample JSON"
//
// and answers each with "ok" or "error REASON". Ends with its standard input.

#include <fastcdr/Cdr.h>
#include <fastcdr/FastBuffer.h>
#include <fastdds/dds/publisher/DataWriter.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>

#include <array>
#include <chrono>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "fast_release.h"
#include "json.h"

namespace {

namespace cdr = eprosima::fastcdr;
namespace dds = peers::fast::dds;
namespace rtps = peers::fast::rtps;

// A message lists its members once, by fields(visitor), for both ways of writing it.

class Serializer {
  public:
    explicit Serializer(cdr::Cdr& stream) : stream_(stream) {}

    template <typename T>
    Serializer& operator()(const char*, const T& value) {
        write(value);
        return *this;
    }

  private:
    template <typename T>
    void write(const T& value) {
        if constexpr (std::is_class_v<T>) {
            value.fields(*this);
        } else {
            stream_ << value;
        }
    }
    void write(const std::string& value) { stream_ << value; }
    void write(const std::wstring& value) { stream_ << value; }
    void write(const std::vector<bool>& values) { stream_ << values; }
    template <typename T>
    void write(const std::vector<T>& values) {
        stream_ << static_cast<uint32_t>(values.size());
        for (const T& value : values) {
            write(value);
        }
    }
    template <typename T, size_t N>
    void write(const std::array<T, N>& values) {
        for (const T& value : values) {
            write(value);
        }
    }

    cdr::Cdr& stream_;
};

class Describer {
  public:
    template <typename T>
    Describer& operator()(const char* name, const T& value) {
        object_.add_json(name, text_of(value));
        return *this;
    }
    std::string text() const { return object_.text(); }

  private:
    template <typename T>
    static std::string text_of(const T& value) {
        if constexpr (std::is_class_v<T>) {
            Describer describer;
            value.fields(describer);
            return describer.text();
        } else {
            return peers::json(value);
        }
    }
    static std::string text_of(const std::string& value) { return peers::json(value); }
    static std::string text_of(const std::wstring& value) { return peers::json(value); }
    template <typename Values>
    static std::string list_of(const Values& values) {
        std::string text;
        for (const auto& value : values) {
            text += (text.empty() ? "" : ",") + text_of(value);
        }
        return '[' + text + ']';
    }
    template <typename T>
    static std::string text_of(const std::vector<T>& values) {
        return list_of(values);
    }
    template <typename T, size_t N>
    static std::string text_of(const std::array<T, N>& values) {
        return list_of(values);
    }

    peers::JsonObject object_;
};

// The messages, as their packages have them.

struct String {
    std::string data = "Hello World: \"1\"";

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("data", data);
    }
};

struct Time {
    int32_t sec = 1700000000;
    uint32_t nanosec = 123456789;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("sec", sec)("nanosec", nanosec);
    }
};

struct Header {
    Time stamp;
    std::string frame_id = "base_link";

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("stamp", stamp)("frame_id", frame_id);
    }
};

struct Vector3 {
    double x, y, z;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("x", x)("y", y)("z", z);
    }
};

struct Quaternion {
    double x = 0, y = -0.5, z = 1e-9, w = 1;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("x", x)("y", y)("z", z)("w", w);
    }
};

struct Imu {
    Header header;
    Quaternion orientation;
    std::array<double, 9> orientation_covariance{-1};
    Vector3 angular_velocity{0.1, 0.2, -0.3};
    std::array<double, 9> angular_velocity_covariance{1, 2, 3, 4, 5, 6, 7, 8, 9};
    Vector3 linear_acceleration{0, 0, 9.81};
    std::array<double, 9> linear_acceleration_covariance{};

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("header", header)("orientation", orientation)("orientation_covariance", orientation_covariance);
        visit("angular_velocity", angular_velocity)("angular_velocity_covariance",
                                                    angular_velocity_covariance);
        visit("linear_acceleration", linear_acceleration);
        visit("linear_acceleration_covariance", linear_acceleration_covariance);
    }
};

struct JointState {
    Header header;
    std::vector<std::string> name{"shoulder", "", "wrist"};
    std::vector<double> position{0.5, -1.25, 3};
    std::vector<double> velocity;
    std::vector<double> effort{1e300};

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("header", header)("name", name)("position", position)("velocity", velocity)("effort", effort);
    }
};

struct PointField {
    std::string name;
    uint32_t offset = 0;
    uint8_t datatype = 7;
    uint32_t count = 1;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("name", name)("offset", offset)("datatype", datatype)("count", count);
    }
};

struct PointCloud2 {
    Header header;
    uint32_t height = 1;
    uint32_t width = 2;
    std::vector<PointField> parts{{"x", 0}, {"yy", 4}, {"zzz", 8}};
    bool is_bigendian = false;
    uint32_t point_step = 12;
    uint32_t row_step = 24;
    std::vector<uint8_t> data = std::vector<uint8_t>(13, 200); // more of them are printed in rows
    bool is_dense = true;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("header", header)("height", height)("width", width)("fields", parts);
        visit("is_bigendian", is_bigendian)("point_step", point_step)("row_step", row_step);
        visit("data", data)("is_dense", is_dense);
    }
};

struct Empty {
    uint8_t structure_needs_at_least_one_member = 0;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("structure_needs_at_least_one_member", structure_needs_at_least_one_member);
    }
};

// What the others do not have, in the package of the test.
struct Mixture {
    bool flag = true;
    uint8_t octet = 0xab;
    uint8_t letter = 65; // char of ROS
    int8_t tiny = -7;
    int64_t huge = -9000000000000000000;
    Empty nothing;
    float real = 0.1F;
    std::wstring wide = L"gr\u00fc\u00df";
    std::vector<bool> flags{true, false, true};
    std::array<std::string, 2> words{"one", "two"};
    std::vector<std::wstring> wide_words{L"", L"a"};
    std::array<Vector3, 2> corners{{{1, 2, 3}, {4, 5, 6}}};
    std::vector<uint16_t> bounded{1, 65535};
    uint64_t last = 18000000000000000000U;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("flag", flag)("byte", octet)("letter", letter)("tiny", tiny)("huge", huge)("nothing", nothing);
        visit("real", real)("wide", wide)("flags", flags)("words", words)("wide_words", wide_words);
        visit("corners", corners)("bounded", bounded)("last", last);
    }
};

struct AddTwoIntsRequest {
    int64_t a = 41;
    int64_t b = -1;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("a", a)("b", b);
    }
};

struct Uuid {
    std::array<uint8_t, 16> uuid{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 255};

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("uuid", uuid);
    }
};

struct FibonacciFeedback {
    std::vector<int32_t> sequence{0, 1, 1, 2, 3, 5};

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("sequence", sequence);
    }
};

struct FibonacciFeedbackMessage {
    Uuid goal_id;
    FibonacciFeedback feedback;

    template <typename Visitor>
    void fields(Visitor& visit) const {
        visit("goal_id", goal_id)("feedback", feedback);
    }
};

struct Message {
    std::string topic;
    std::string type;
    std::function<void(cdr::Cdr&)> serialize;
    std::function<std::string()> describe;
};

template <typename T>
Message message_of(const char* topic, const char* type) {
    return {topic, type,
            [](cdr::Cdr& stream) {
                Serializer serializer(stream);
                T().fields(serializer);
            },
            [] {
                Describer describer;
                T().fields(describer);
                return describer.text();
            }};
}

const std::map<std::string, Message>& messages() {
    static const std::map<std::string, Message> kMessages{
        {"string", message_of<String>("rt/chatter", "std_msgs::msg::dds_::String_")},
        {"imu", message_of<Imu>("rt/imu", "sensor_msgs::msg::dds_::Imu_")},
        {"joints", message_of<JointState>("rt/joint_states", "sensor_msgs::msg::dds_::JointState_")},
        {"cloud", message_of<PointCloud2>("rt/points", "sensor_msgs::msg::dds_::PointCloud2_")},
        {"mixture", message_of<Mixture>("rt/mixture", "plant_msgs::msg::dds_::Mixture_")},
        {"request", message_of<AddTwoIntsRequest>("rq/addRequest",
                                                  "example_interfaces::srv::dds_::AddTwoInts_Request_")},
        {"feedback", message_of<FibonacciFeedbackMessage>(
                         "rt/fibonacci/_action/feedback",
                         "example_interfaces::action::dds_::Fibonacci_FeedbackMessage_")}};
    return kMessages;
}

// The type support of a message; its samples are the message itself.
class MessageType final : public peers::fast::HandWrittenType {
  public:
    explicit MessageType(const Message& message) : HandWrittenType(message.type, false, kRoom) {}

    bool encode(const void* data, rtps::SerializedPayload_t& payload) override {
        cdr::FastBuffer buffer(reinterpret_cast<char*>(payload.data), payload.max_size);
        peers::fast::PlainStream stream(buffer);
        payload.encapsulation = CDR_LE;
        stream.serialize_encapsulation();
        static_cast<const Message*>(data)->serialize(stream);
        payload.length = stream.length();
        return true;
    }
    bool decode(const rtps::SerializedPayload_t&, void*) override { return false; }
    uint32_t size_of(const void*) const override { return kRoom; }
    void* create() const override { return new Message; }
    void destroy(void* data) const override { delete static_cast<Message*>(data); }
    void key_of(const void*, rtps::InstanceHandle_t&) const override {}

  private:
    static constexpr uint32_t kRoom = 1024; // enough for each of these messages
};

class Node {
  public:
    bool is_usable() const { return udp_.is_usable(); }

    std::string run(const std::string& verb, const std::string& name) {
        const auto message = messages().find(name);
        if (message == messages().end()) {
            return "no message called " + name;
        }
        if (verb == "writer") {
            return create_writer(name, message->second);
        }
        const auto writer = writers_.find(name);
        if (writer == writers_.end()) {
            return "no writer called " + name;
        }
        if (verb == "matched") {
            return wait_for_reader(*writer->second);
        }
        if (verb != "write") {
            return "no command called " + verb;
        }
        std::cout << "sample " << message->second.describe() << std::endl;
        return peers::fast::is_ok(writer->second->write(const_cast<Message*>(&message->second)))
                   ? ""
                   : "write failed";
    }

  private:
    std::string create_writer(const std::string& name, const Message& message) {
        dds::TypeSupport(new MessageType(message)).register_type(&udp_.participant());
        dds::Topic* topic =
            udp_.participant().create_topic(message.topic, message.type, dds::TOPIC_QOS_DEFAULT);
        if (topic == nullptr) {
            return "create_topic failed";
        }
        dds::DataWriterQos qos;
        qos.reliability().kind = dds::RELIABLE_RELIABILITY_QOS;
        qos.durability().kind = dds::VOLATILE_DURABILITY_QOS;
        qos.data_sharing().off();
        dds::DataWriter* writer = udp_.publisher().create_datawriter(topic, qos);
        if (writer == nullptr) {
            return "create_datawriter failed";
        }
        writers_[name] = writer;
        return "";
    }

    static std::string wait_for_reader(dds::DataWriter& writer) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        dds::PublicationMatchedStatus status;
        do {
            writer.get_publication_matched_status(status);
            if (status.current_count > 0) {
                return "";
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        } while (std::chrono::steady_clock::now() < end);
        return "no reader came";
    }

    peers::fast::UdpApplication udp_; // last: its writers go before their types
    std::map<std::string, dds::DataWriter*> writers_;
};

} // namespace

int main() {
    Node node;
    if (!node.is_usable()) {
        std::cout << "error no participant" << std::endl;
        return 1;
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string verb;
        std::string name;
        words >> verb >> name;
        const std::string error = node.run(verb, name);
        std::cout << (error.empty() ? "ok" : "error " + error) << std::endl;
    }
    return 0;
}
