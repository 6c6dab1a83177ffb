// Publishes types that are made at run time on Fast DDS, which announces them. Prints what it writes as JSON.
// With the argument "answers" it has the type lookup service, which Fast DDS 2 does not have unless it is
// told so. Reads one command per line:
//
//   struct NAME [mutable] MEMBER=KIND ...   a type; a kind is bool, byte, char, int16, int32, uint32, int64,
//   float32,
//                                           float64, string, wstring or the name of a type before, and may
//                                           end with
//                                           [] for a sequence or [N] for an array
//   writer NAME                             a writer of this type, on a topic of the same name
//   matched NAME                            waits until a reader of another participant is there
//   write NAME                              writes a sample, none equal to another, and prints "sample JSON"
//
// and answers each with "ok" or "error REASON". Ends with its standard input.

#include <fastcdr/Cdr.h> // before macros of other headers that have its names
#include <fastdds/dds/publisher/DataWriter.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>

#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "fast_dynamic.h"
#include "json.h"

namespace {

namespace dds = peers::fast::dds;
using peers::fast::Part;
using peers::fast::Type;

// What values come from; counts the leaves of all samples.
class Source {
  public:
    bool value(bool) { return next() % 2 == 0; }
    uint8_t value(uint8_t) { return static_cast<uint8_t>(200 + next() % 50); }
    char value(char) { return static_cast<char>('a' + next() % 26); }
    int16_t value(int16_t) { return static_cast<int16_t>(-100 * (next() % 300)); }
    int32_t value(int32_t) { return -1000003 * next(); }
    uint32_t value(uint32_t) { return 4000000000U + static_cast<uint32_t>(next()); }
    int64_t value(int64_t) { return -9000000000000000LL - next(); }
    float value(float) { return 0.1F * static_cast<float>(next()); }
    double value(double) { return 1e-7 * next(); }
    std::string value(const std::string&) {
        return std::string(static_cast<size_t>(next() % 9), '"') + "text";
    }
    std::wstring value(const std::wstring&) {
        return L"gr\u00fc\u00df" + std::wstring(static_cast<size_t>(next() % 5), L'w');
    }
    uint32_t length() { return static_cast<uint32_t>(next() % 4); }

  private:
    int next() { return ++count_; }
    int count_ = 0;
};

// A kind of value: its type, and how one is put into a place and told.
class Kind {
  public:
    virtual ~Kind() = default;
    virtual Type type() const = 0;
    virtual std::string put(const Part& part, uint32_t id, Source& source) const = 0;
};
using KindPointer = std::shared_ptr<const Kind>;

template <typename T>
class Leaf final : public Kind {
  public:
    Type type() const override { return peers::fast::type_of(T()); }
    std::string put(const Part& part, uint32_t id, Source& source) const override {
        const T value = source.value(T());
        peers::fast::put(part, id, value);
        if constexpr (std::is_same_v<T, char>) {
            return peers::json(std::string(1, value));
        } else {
            return peers::json(value);
        }
    }
};

class Collection final : public Kind {
  public:
    // A length of zero is a sequence, whose lengths vary.
    Collection(KindPointer element, uint32_t length) : element_(std::move(element)), length_(length) {}
    Type type() const override {
        return length_ > 0 ? peers::fast::array_of(element_->type(), length_)
                           : peers::fast::sequence_of(element_->type());
    }
    std::string put(const Part& part, uint32_t id, Source& source) const override {
        const peers::fast::Loan loan(part, id);
        const uint32_t length = length_ > 0 ? length_ : source.length();
        std::string text;
        for (uint32_t i = 0; i < length; ++i) {
            if (length_ == 0) {
                peers::fast::append(loan.part());
            }
            text += (i > 0 ? "," : "") + element_->put(loan.part(), i, source);
        }
        return '[' + text + ']';
    }

  private:
    KindPointer element_;
    uint32_t length_;
};

class Structure final : public Kind {
  public:
    Structure(const std::string& name, bool is_mutable,
              std::vector<std::pair<std::string, KindPointer>> members)
        : members_(std::move(members)) {
        std::vector<std::pair<std::string, Type>> types;
        for (const auto& [member, kind] : members_) {
            types.emplace_back(member, kind->type());
        }
        type_ = peers::fast::struct_of(name, is_mutable, types);
    }
    Type type() const override { return type_; }
    std::string put(const Part& part, uint32_t id, Source& source) const override {
        return fill(peers::fast::Loan(part, id).part(), source);
    }
    std::string fill(const Part& part, Source& source) const {
        peers::JsonObject object;
        uint32_t id = 0;
        for (const auto& [name, kind] : members_) {
            object.add_json(name.c_str(), kind->put(part, id++, source));
        }
        return object.text();
    }

  private:
    std::vector<std::pair<std::string, KindPointer>> members_;
    Type type_;
};

dds::DomainParticipantQos lookup_qos([[maybe_unused]] bool answers) {
    dds::DomainParticipantQos qos;
#if FASTDDS_VERSION_MAJOR < 3
    qos.wire_protocol().builtin.typelookup_config.use_server = answers;
#endif
    return qos;
}

class Application {
  public:
    explicit Application(bool answers) : udp_(lookup_qos(answers)) {}

    bool is_usable() const { return udp_.is_usable(); }

    std::string run(const std::string& verb, const std::string& name, std::istream& rest) {
        if (verb == "struct") {
            return define(name, rest);
        }
        if (verb == "writer") {
            return create_writer(name);
        }
        const auto writer = writers_.find(name);
        if (writer == writers_.end()) {
            return "no writer called " + name;
        }
        return verb == "matched" ? wait_for_reader(*writer->second)
               : verb == "write" ? write(name, *writer->second)
                                 : "no command called " + verb;
    }

  private:
    KindPointer kind_of(const std::string& text) const {
        const size_t bracket = text.rfind('[');
        if (bracket != std::string::npos) {
            const KindPointer element = kind_of(text.substr(0, bracket));
            const std::string length = text.substr(bracket + 1, text.size() - bracket - 2);
            return element == nullptr
                       ? nullptr
                       : std::make_shared<Collection>(
                             element, length.empty() ? 0U : static_cast<uint32_t>(std::stoul(length)));
        }
        const auto found = kinds_.find(text);
        return found == kinds_.end() ? nullptr : found->second;
    }

    std::string define(const std::string& name, std::istream& rest) {
        std::vector<std::pair<std::string, KindPointer>> members;
        bool is_mutable = false;
        for (std::string word; rest >> word;) {
            const size_t equals = word.find('=');
            if (equals == std::string::npos) {
                is_mutable = word == "mutable";
                continue;
            }
            members.emplace_back(word.substr(0, equals), kind_of(word.substr(equals + 1)));
            if (members.back().second == nullptr) {
                return "no kind for " + word;
            }
        }
        structures_[name] = std::make_shared<Structure>(name, is_mutable, std::move(members));
        kinds_[name] = structures_[name];
        return "";
    }

    std::string create_writer(const std::string& name) {
        const auto found = structures_.find(name);
        if (found == structures_.end()) {
            return "no type called " + name;
        }
        const dds::TypeSupport support(new peers::fast::DynamicSupport(found->second->type()));
        support.register_type(&udp_.participant());
        dds::Topic* topic =
            udp_.participant().create_topic(name, support.get_type_name(), dds::TOPIC_QOS_DEFAULT);
        dds::DataWriterQos qos;
        qos.reliability().kind = dds::RELIABLE_RELIABILITY_QOS;
        qos.data_sharing().off();
        dds::DataWriter* writer = topic == nullptr ? nullptr : udp_.publisher().create_datawriter(topic, qos);
        if (writer == nullptr) {
            return "create_datawriter failed";
        }
        writers_[name] = writer;
        return "";
    }

    std::string write(const std::string& name, dds::DataWriter& writer) {
        const Structure& structure = *structures_[name];
        peers::fast::Data data = peers::fast::new_data(structure.type());
        std::cout << "sample " << structure.fill(peers::fast::whole(data), source_) << std::endl;
        return peers::fast::is_ok(writer.write(peers::fast::to_write(data))) ? "" : "write failed";
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

    std::map<std::string, KindPointer> kinds_{
        {"bool", std::make_shared<Leaf<bool>>()},           {"byte", std::make_shared<Leaf<uint8_t>>()},
        {"char", std::make_shared<Leaf<char>>()},           {"int16", std::make_shared<Leaf<int16_t>>()},
        {"int32", std::make_shared<Leaf<int32_t>>()},       {"uint32", std::make_shared<Leaf<uint32_t>>()},
        {"int64", std::make_shared<Leaf<int64_t>>()},       {"float32", std::make_shared<Leaf<float>>()},
        {"float64", std::make_shared<Leaf<double>>()},      {"string", std::make_shared<Leaf<std::string>>()},
        {"wstring", std::make_shared<Leaf<std::wstring>>()}};
    std::map<std::string, std::shared_ptr<const Structure>> structures_;
    std::map<std::string, dds::DataWriter*> writers_;
    Source source_;
    peers::fast::UdpApplication udp_; // last: its writers go before their types
};

} // namespace

int main(int argc, char** argv) {
    Application application(argc > 1 && std::string(argv[1]) == "answers");
    if (!application.is_usable()) {
        std::cout << "error no participant" << std::endl;
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string verb;
        std::string name;
        words >> verb >> name;
        const std::string error = application.run(verb, name, words);
        std::cout << (error.empty() ? "ok" : "error " + error) << std::endl;
    }
    return 0;
}
