#include "types/lookup/shared_type_resolver.h"

#include <utility>

namespace meridian::types {

SharedTypeResolver::Asker SharedTypeResolver::add(Client& client) {
    const MutexLock lock(mutex_);
    clients_[++last_] = &client;
    return last_;
}

void SharedTypeResolver::remove(Asker asker, rtps::MonotonicTime now) {
    const MutexLock lock(mutex_);
    clients_.erase(asker);
    resolver_.asker_gone(asker, now);
    armed_ = rtps::kNever; // the timer may have been the client's
    pump();
}

void SharedTypeResolver::on_timer(rtps::MonotonicTime now) {
    const MutexLock lock(mutex_);
    if (armed_ <= now)
        armed_ = rtps::kNever;
    resolver_.on_timer(now);
    pump();
}

void SharedTypeResolver::pump() {
    for (const TypeResolver::Outcome& outcome : resolver_.take_outcomes()) {
        const auto client = clients_.find(outcome.asker);
        if (client != clients_.end())
            client->second->settle(outcome);
    }
    for (TypeResolver::Request& request : resolver_.take_requests()) {
        const auto client = clients_.find(request.asker);
        if (client != clients_.end())
            client->second->send(std::move(request));
    }
    const rtps::MonotonicTime next = resolver_.next_deadline();
    if (next >= armed_ || clients_.empty())
        return;
    armed_ = next;
    clients_.begin()->second->wake_at(next);
}

std::shared_ptr<SharedTypeResolver> SharedTypeResolvers::with(const TypeResolver::Settings& settings) {
    const MutexLock lock(mutex_);
    std::weak_ptr<SharedTypeResolver>& known = by_size_[settings.max_type_size];
    std::shared_ptr<SharedTypeResolver> resolver = known.lock();
    if (resolver == nullptr) {
        resolver = std::make_shared<SharedTypeResolver>(settings);
        known = resolver;
    }
    return resolver;
}

} // namespace meridian::types
