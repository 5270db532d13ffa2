#pragma once

/// Gives access to a private member, because an explicit instantiation may name it:
///   struct Name { using Type = std::string Person::*; friend Type MemberOf(Name); };
///   template struct Opened<Name, &Person::_name>;
///   person.*MemberOf(Name())
template <class Tag, typename Tag::Type member>
struct Opened {
    friend typename Tag::Type MemberOf(Tag) { return member; }
};
