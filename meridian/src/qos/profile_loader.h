#pragma once

#include <set>
#include <string>

#include "qos/profile.h"
#include "qos/qos_reader.h"

namespace meridian::qos {

/// Builds a ProfileSet: add every document, then finish once. After a false the loader and its set are of no
/// use.
class ProfileLoader {
  public:
    /// The longest chain of bases. It bounds the recursion along bases.
    static constexpr int kMaxHeight = 32;

    explicit ProfileLoader(ProfileSet& set) : set_(set) {}

    /// Adds the libraries of a document of the set and checks every value of every policy in them. Elements
    /// of profiles that are not known are told as warnings: other tools' documents hold extensions of their
    /// own.
    bool add(const xml::Document& document, std::string& error);
    /// Finds all bases; fails where one does not exist, leads back to itself or is too far down.
    bool finish(std::string& error);

  private:
    void add_library(pugi::xml_node element);
    void add_profile(Library& library, pugi::xml_node element);
    void add_entity(Profile& profile, EntityKind kind, pugi::xml_node element);
    /// When the reader failed at an unknown element: notes that for the profile, and lets the reader go on.
    void keep_unknown(Profile& profile);
    std::string name_of(pugi::xml_node element);
    void fail(const Profile& profile, pugi::xml_node element, const std::string& reason);
    /// Of an element of the profile, or, without one, of the profile itself.
    void resolve_base(Profile& profile, pugi::xml_node element, EntityQos* entity);
    /// Of an element of the profile, or, without one, of all that the profile has of that kind.
    const Height& height_of(Profile& profile, EntityKind kind, EntityQos* entity);

    ProfileSet& set_;
    const xml::Document* document_ = nullptr; // of the elements at hand
    QosReader reader_;                        // keeps the first error
    Profile* default_of_document_ = nullptr;
    std::set<std::string> entities_of_profile_; // what makes each of them different from the others
    int depth_ = 0;                             // of the recursion in height_of
};

} // namespace meridian::qos
