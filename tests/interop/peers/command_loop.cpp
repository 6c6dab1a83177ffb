#include "command_loop.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <sstream>
#include <thread>

namespace peers {

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::nanoseconds duration_of(double seconds) {
    return std::chrono::nanoseconds(static_cast<int64_t>(seconds * 1e9));
}

std::vector<std::string> words_of(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool any = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if ((c == ' ' || c == '\t' || c == '\r') && !quoted) {
            if (any) {
                words.push_back(word);
            }
            word.clear();
            any = false;
        } else {
            word += c;
            any = true;
        }
    }
    if (any) {
        words.push_back(word);
    }
    return words;
}

Command parse(const std::vector<std::string>& words) {
    Command command;
    command.verb = words[0];
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t equals = words[i].find('=');
        if (equals != std::string::npos) {
            command.values[words[i].substr(0, equals)] = words[i].substr(equals + 1);
        } else if (i == 1) {
            command.name = words[i];
        } else {
            command.values[words[i]] = "";
        }
    }
    return command;
}

std::string numbered(std::string text, long index) {
    const size_t at = text.find("{i}");
    return at == std::string::npos ? text : text.replace(at, 3, std::to_string(index));
}

std::vector<uint8_t> bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

void print_guid(const char* what, const std::string& name, const GuidBytes& guid) {
    const auto word = [&guid](size_t at) {
        return static_cast<unsigned>(guid[at]) << 24 | static_cast<unsigned>(guid[at + 1]) << 16 |
               static_cast<unsigned>(guid[at + 2]) << 8 | static_cast<unsigned>(guid[at + 3]);
    };
    std::printf("%s %s guid=\"0x%08X,0x%08X,0x%08X:0x%08X\"\n", what, name.c_str(), word(0), word(4), word(8),
                word(12));
}

std::string create(Peer& peer, const Command& command, bool writer) {
    EndpointOptions options;
    options.reliable = !command.has("best_effort");
    options.transient_local = command.has("transient_local");
    options.exclusive = command.has("exclusive") || command.has("strength");
    options.strength = static_cast<int>(command.number("strength", 0));
    options.deadline = command.seconds("deadline", 0);
    options.depth = static_cast<int>(command.number("depth", 0));
    options.representation = static_cast<int>(command.number("representation", 0));
    options.user_data = bytes_of(command.text("user_data"));
    if (command.has("partitions")) {
        options.partitions = command.list("partitions");
    }
    const long count = command.number("count", 1);
    for (long i = 0; i < count; ++i) {
        options.topic = numbered(command.text("topic", "Topic"), i);
        options.type = command.text("type", "keyed");
        options.type_name = numbered(command.text("type_name"), i);
        options.entity_name = numbered(command.text("entity_name"), i);
        const std::string name = numbered(command.name, i);
        GuidBytes guid{};
        const std::string error = peer.create_endpoint(name, writer, options, guid);
        if (!error.empty()) {
            return error;
        }
        print_guid(writer ? "writer" : "reader", name, guid);
    }
    return "";
}

std::string write(Peer& peer, const Command& command) {
    const long count = command.number("count", 1);
    const long keys = command.number("keys", 1);
    const long endpoints = command.number("over", 1);
    const double rate = command.seconds("rate", 0);
    Sample sample;
    sample.size = static_cast<uint32_t>(command.number("size", 0));
    const Clock::time_point start = Clock::now();
    for (long i = 0; i < count; ++i) {
        if (rate > 0) {
            std::this_thread::sleep_until(start + duration_of(static_cast<double>(i) / rate));
        }
        sample.id = static_cast<int32_t>(command.number("key", 0) + i % keys);
        sample.value = static_cast<uint32_t>(command.number("value", 0) + i);
        const std::string name = numbered(command.name, i % endpoints);
        const std::string error = peer.write(name, sample);
        if (!error.empty()) {
            return error;
        }
        if (command.has("show")) {
            std::printf("sample %s\n", peer.describe(name, sample).c_str());
        }
    }
    std::printf("wrote %s %ld\n", command.name.c_str(), count);
    return "";
}

// Asks "current" until it reaches the count or the time is over. Polling is fine here: it is the test's side.
std::string await_count(const Command& command, const char* what, const std::function<int()>& current) {
    const long count = command.number("count", 1);
    const Clock::time_point end = Clock::now() + duration_of(command.seconds("timeout", 10));
    int seen = current();
    while (seen >= 0 && seen < count && Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        seen = current();
    }
    std::printf("%s %s %d\n", what, command.name.c_str(), seen);
    if (seen < 0) {
        return "no endpoint called " + command.name;
    }
    return seen < count ? "timeout" : "";
}

// Waits until exactly so many participants of others are known, and tells which.
std::string others(Peer& peer, const Command& command) {
    const auto count = static_cast<size_t>(command.number("count", 1));
    const Clock::time_point end = Clock::now() + duration_of(command.seconds("timeout", 10));
    std::vector<Other> known = peer.others();
    while (known.size() != count && Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        known = peer.others();
    }
    for (const Other& other : known) {
        print_guid("other", "\"" + other.name + "\"", other.guid);
    }
    return known.size() == count ? "" : "timeout";
}

std::string perform(Peer& peer, const Command& command) {
    if (command.verb == "release") {
        std::cout << "release " << peer.release() << std::endl;
        return "";
    }
    if (command.verb == "participant") {
        GuidBytes guid{};
        const std::string error = peer.create_participant(command, guid);
        if (error.empty()) {
            print_guid("participant", command.text("name", "-"), guid);
        }
        return error;
    }
    if (command.verb == "writer" || command.verb == "reader") {
        return create(peer, command, command.verb == "writer");
    }
    if (command.verb == "write") {
        return write(peer, command);
    }
    if (command.verb == "dispose") {
        return peer.dispose(command.name, static_cast<int32_t>(command.number("key", 0)));
    }
    if (command.verb == "writedispose") {
        return peer.write_dispose(command.name, Sample{static_cast<int32_t>(command.number("key", 0)),
                                                       static_cast<uint32_t>(command.number("value", 0)), 0});
    }
    if (command.verb == "unregister") {
        return peer.unregister(command.name, static_cast<int32_t>(command.number("key", 0)));
    }
    if (command.verb == "partitions") {
        return peer.set_partitions(command.name, command.list("partitions"));
    }
    if (command.verb == "user_data") {
        return peer.set_user_data(command.name, bytes_of(command.text("user_data")));
    }
    if (command.verb == "delete") {
        for (long i = 0; i < command.number("count", 1); ++i) {
            const std::string error = peer.remove(numbered(command.name, i));
            if (!error.empty()) {
                return error;
            }
        }
        return "";
    }
    if (command.verb == "matched") {
        return await_count(command, "matched", [&] { return peer.matches(command.name); });
    }
    if (command.verb == "acknowledged") {
        return await_count(command, "acknowledged", [&] { return peer.acknowledged(command.name); });
    }
    if (command.verb == "received") {
        int total = 0;
        return await_count(command, "received", [&] {
            const int taken = peer.take(command.name);
            return taken < 0 ? taken : total += taken;
        });
    }
    if (command.verb == "others") {
        return others(peer, command);
    }
    if (command.verb == "pause") {
        std::this_thread::sleep_for(duration_of(command.seconds("seconds", 1)));
        return "";
    }
    return "unknown command " + command.verb;
}

enum class Next { kContinue, kQuit, kFailed };

Next run_line(Peer& peer, const std::string& line) {
    const std::vector<std::string> words = words_of(line);
    if (words.empty() || words[0][0] == '#') {
        return Next::kContinue;
    }
    if (words[0] == "quit") {
        return Next::kQuit;
    }
    // Ends without a farewell, as a crash would.
    if (words[0] == "die") {
        std::_Exit(0);
    }
    const std::string error = perform(peer, parse(words));
    std::printf("%s\n", error.empty() ? "ok" : ("error " + error).c_str());
    std::fflush(stdout);
    return error.empty() ? Next::kContinue : Next::kFailed;
}

} // namespace

std::string Command::text(const std::string& key, const std::string& otherwise) const {
    const auto found = values.find(key);
    return found == values.end() ? otherwise : found->second;
}

long Command::number(const std::string& key, long otherwise) const {
    return has(key) ? std::strtol(text(key).c_str(), nullptr, 0) : otherwise;
}

double Command::seconds(const std::string& key, double otherwise) const {
    return has(key) ? std::strtod(text(key).c_str(), nullptr) : otherwise;
}

std::vector<std::string> Command::list(const std::string& key) const {
    std::vector<std::string> result;
    std::string all = text(key);
    size_t start = 0;
    while (start <= all.size()) {
        const size_t comma = std::min(all.find(',', start), all.size());
        result.push_back(all.substr(start, comma - start));
        start = comma + 1;
    }
    return result;
}

int run_commands(Peer& peer, int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const Next next = run_line(peer, argv[i]);
        if (next != Next::kContinue) {
            peer.close();
            return next == Next::kQuit ? 0 : 1;
        }
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        if (run_line(peer, line) == Next::kQuit) {
            break;
        }
    }
    peer.close();
    std::printf("closed\n");
    return 0;
}

} // namespace peers
