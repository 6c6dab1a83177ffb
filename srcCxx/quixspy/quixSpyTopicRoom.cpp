#include "quixspy/quixSpyTopicRoom.h"

#include <cstring>
#include <string>
#include <utility>

#include "meridian/data_reader.h"
#include "meridian/dynamic_data_type_support.h"
#include "meridian/logger.h"
#include "meridian/subscriber.h"
#include "meridian/topic.h"
#include "quixspy/quixSpyAgent.h"
#include "quixspy/quixSpyDataListener.h"
#include "quixspy/quixSpyDiscoveryListener.h"

size_t QuixSpyTopicRoom::places(const char* topicName, const char* typeName) {
    return 1 + (std::strlen(topicName) + std::strlen(typeName)) / 1024;
}

bool QuixSpyTopicRoom::take(const RtpsGuid& endpoint, size_t places) {
    size_t& of_participant = takenBy_[prefix_of(endpoint)];
    const bool fits = taken_ + places <= kMost && of_participant + places <= kMost - taken_ - places;
    if (fits) {
        taken_ += places;
        of_participant += places;
    } else if (of_participant == 0) {
        takenBy_.erase(prefix_of(endpoint));
    }
    return fits;
}

void QuixSpyTopicRoom::give_back(const RtpsGuid& endpoint, size_t places) {
    const auto of_participant = takenBy_.find(prefix_of(endpoint));
    taken_ -= places;
    of_participant->second -= places;
    if (of_participant->second == 0)
        takenBy_.erase(of_participant);
}

namespace {

using ParticipantNode = QuixSpyParticipantListNode;
using TopicNode = QuixSpyDataListenerNode;

/// Its first writer is gone, and its reader matched with none; another one makes it read again. Where the
/// first one is still there the reader may not know of it yet: a further participant begins with nothing.
bool has_no_writers(const TopicNode& topic, const QuixSpyDiscoveryListener* discovery) {
    DDS_SubscriptionMatchedStatus status;
    return (discovery == nullptr || discovery->registry().find_node(topic.writer) == nullptr) &&
           (topic.reader == nullptr ||
            (topic.reader->get_subscription_matched_status(status) == DDS_RETCODE_OK &&
             status.current_count == 0));
}

void remove_topic(ParticipantNode& node, TopicNode* topic, QuixSpyEnding& ending) {
    topic->listener->detach();
    topic->listener->drop_waiting(ending);
    const std::string topic_name = topic->listener->topicName;
    const std::string type_name = topic->listener->typeName;
    if (topic->reader != nullptr)
        node.subscriber->delete_datareader(topic->reader);
    DDSTopic* const described =
        DDSTopic::narrow(node.participant->lookup_topicdescription(topic_name.c_str()));
    if (described != nullptr)
        node.participant->delete_topic(described);
    // Fails while other topics are of this type. Types of documents are not this topic's.
    if (topic->typeSupport != nullptr || node.participant->get_typecode(type_name.c_str()) == nullptr)
        node.participant->unregister_type(type_name.c_str());
    node.delete_topic(topic);
}

} // namespace

bool QuixSpyAgent::make_room(const ParticipantNode& node, const RtpsGuid& writer, const char* topicName,
                             const char* typeName) {
    const size_t places = QuixSpyTopicRoom::places(topicName, typeName);
    if (_topicRoom.is_crowded())
        forget_unwritten_topics(&node);
    if (_topicRoom.take(writer, places))
        return true;
    tell_unread(writer, topicName, "too many topics are read already, of this application or of all");
    return false;
}

bool QuixSpyAgent::forget_unwritten_topics(const ParticipantNode* needed) {
    constexpr std::chrono::seconds kPause{1}; // it looks at each topic
    const auto now = std::chrono::steady_clock::now();
    if (now < forgotAt_ + kPause)
        return false;
    forgotAt_ = now;
    bool forgot = false;
    for (ParticipantNode* node = _participantList.head(); node != nullptr;) {
        ParticipantNode* const following = QuixSpyList<ParticipantNode>::next(node);
        for (TopicNode* topic = node->dataListeners.head(); topic != nullptr;) {
            TopicNode* const next = QuixSpyList<TopicNode>::next(topic);
            if (has_no_writers(*topic, _discoveryListener)) {
                _topicRoom.give_back(topic->writer, QuixSpyTopicRoom::places(topic->listener->topicName,
                                                                             topic->listener->typeName));
                remove_topic(*node, topic, _ending);
                forgot = true;
            }
            topic = next;
        }
        if (node != _participantList.head() && node != needed && node->dataListeners.head() == nullptr) {
            _participantList.unlink(node);
            delete_participant(node);
        }
        node = following;
    }
    if (forgot && !std::exchange(toldForgotten_, true)) {
        QUIXLog_error("subscription",
                      "there are many topics: those that have no writer any more are forgotten, also by the "
                      "statistics; this is told once");
    }
    return forgot;
}
