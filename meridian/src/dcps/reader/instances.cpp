#include "dcps/reader/instances.h"

#include <algorithm>

namespace meridian::dcps {

Instances::~Instances() {
    for (auto& [key, instance] : instances_) {
        while (instance.registrations != nullptr)
            drop(&instance.registrations);
    }
    share_.give_back(instances_.size() * kBytes);
}

Instance* Instances::find(const rtps::KeyHash& key) {
    if (last_found_ != nullptr && *last_found_->key == key)
        return last_found_;
    const auto found = instances_.find(key);
    if (found != instances_.end())
        last_found_ = &found->second;
    return found != instances_.end() ? last_found_ : nullptr;
}

Instance& Instances::create(const rtps::KeyHash& key) {
    const auto made = instances_.try_emplace(key).first;
    made->second.key = &made->first;
    return made->second;
}

void Instances::forget(Instance& instance) {
    set_used(instance, true);
    while (instance.registrations != nullptr)
        drop(&instance.registrations);
    last_found_ = nullptr;
    instances_.erase(rtps::KeyHash(*instance.key));
    share_.give_back(kBytes);
}

void Instances::set_used(Instance& instance, bool used) {
    if (instance.unused != used)
        return;
    if (used) {
        if (last_ended_ == &instance)
            last_ended_ = instance.by_use.before;
        by_use_.remove(instance, &Instance::by_use);
    } else if (instance.state == DDS_ALIVE_INSTANCE_STATE) {
        by_use_.append(instance, &Instance::by_use);
    } else { // those that have ended are the first to go
        by_use_.insert_behind(last_ended_, instance, &Instance::by_use);
        last_ended_ = &instance;
    }
    instance.unused = !used;
}

InstanceWriter& Instances::writer(const rtps::Guid& guid) {
    if (last_writer_ == nullptr || last_writer_->guid != guid) {
        last_writer_ = &writers_[guid];
        last_writer_->guid = guid;
    }
    return *last_writer_;
}

void Instances::forget_writer(const rtps::Guid& guid) {
    const auto found = writers_.find(guid);
    if (found == writers_.end())
        return;
    while (const Registration* const registration = found->second.registrations.first())
        unregister(*registration->instance, guid);
    if (last_writer_ == &found->second)
        last_writer_ = nullptr;
    writers_.erase(found);
}

bool Instances::recall(Instance& instance, const InstanceWriter& writer) {
    for (Registration** place = &instance.registrations; *place != nullptr; place = &(*place)->next) {
        Registration* const registration = *place;
        if (registration->writer != &writer)
            continue;
        *place = registration->next;
        registration->next = instance.registrations;
        instance.registrations = registration;
        return true;
    }
    return false;
}

void Instances::enrol(Instance& instance, InstanceWriter& writer) {
    size_t others = 0;
    for (Registration** place = &instance.registrations; *place != nullptr; place = &(*place)->next) {
        if (++others < kMostWritersOfInstance)
            continue;
        drop(place); // the last one
        break;
    }
    auto* const registration = new Registration{&writer, &instance, {}, instance.registrations};
    instance.registrations = registration;
    writer.registrations.append(*registration, &Registration::of_writer);
}

bool Instances::unregister(Instance& instance, const rtps::Guid& writer) {
    for (Registration** place = &instance.registrations; *place != nullptr; place = &(*place)->next) {
        if ((*place)->writer->guid != writer)
            continue;
        drop(place);
        return true;
    }
    return false;
}

void Instances::drop(Registration** place) {
    Registration* const registration = *place;
    *place = registration->next;
    if (registration->instance->owner == registration->writer)
        registration->instance->owner = nullptr;
    registration->writer->registrations.remove(*registration, &Registration::of_writer);
    delete registration;
    share_.give_back(kRegistrationBytes);
}

std::vector<rtps::KeyHash> Instances::written_by(const rtps::Guid& writer) const {
    std::vector<rtps::KeyHash> keys;
    const auto found = writers_.find(writer);
    if (found == writers_.end())
        return keys;
    for (const Registration* registration = found->second.registrations.first(); registration != nullptr;
         registration = registration->of_writer.after)
        keys.push_back(*registration->instance->key);
    std::sort(keys.begin(), keys.end());
    return keys;
}

} // namespace meridian::dcps
