#pragma once

// The type resolver that the participants of this process share: what one of them looked up, all know.

#include <map>
#include <memory>

#include "platform/mutex.h"
#include "types/lookup/type_resolver.h"

namespace meridian::types {

/// Any thread. Calls of a client come with the lock held: they must not call back.
class SharedTypeResolver {
  public:
    using Asker = TypeResolver::Asker;

    /// A participant that asks.
    class Client {
      public:
        virtual ~Client() = default;
        virtual void send(TypeResolver::Request request) = 0;
        virtual void settle(const TypeResolver::Outcome& outcome) = 0;
        /// Has on_timer called at that time.
        virtual void wake_at(rtps::MonotonicTime time) = 0;
    };

    explicit SharedTypeResolver(const TypeResolver::Settings& settings) : resolver_(settings) {}

    Asker add(Client& client);
    /// After it returned the client is not called any more.
    void remove(Asker asker, rtps::MonotonicTime now);

    /// Calls function(TypeResolver&) and hands out what came of it.
    template <typename Function>
    void with_resolver(Function function) MERIDIAN_EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        function(resolver_);
        pump();
    }
    void on_timer(rtps::MonotonicTime now);

  private:
    /// Hands out what the resolver has for its clients.
    void pump() MERIDIAN_REQUIRES(mutex_);

    Mutex mutex_;
    TypeResolver resolver_ MERIDIAN_GUARDED_BY(mutex_);
    std::map<Asker, Client*> clients_ MERIDIAN_GUARDED_BY(mutex_);
    Asker last_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    rtps::MonotonicTime armed_ MERIDIAN_GUARDED_BY(mutex_) = rtps::kNever;
};

/// The resolvers of a process, one for each size that types may have. Any thread.
class SharedTypeResolvers {
  public:
    std::shared_ptr<SharedTypeResolver> with(const TypeResolver::Settings& settings);

  private:
    Mutex mutex_;
    std::map<uint64_t, std::weak_ptr<SharedTypeResolver>> by_size_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::types
