#pragma once

#if defined(__GNUC__)
#pragma GCC diagnostic push
// GCC remarks on a public destructor of a base class where the derived class stands. Here that is this header.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace mxservice {

/// What a host's own class derives from to change what a center answers; docs/guide/deriving.md has how.
///
///     class OwnCenter final : public mxservice::CenterBase<mxservice::CServerInstrumentCenter> { ... };
///
/// It is the center, with its constructors, slots and size, and adds nothing but a destructor that is protected, where
/// the center's own is public: a derived class cannot be destroyed through it, and compilers that warn of public
/// destructors that are not virtual have nothing to remark on a class that is `final`. Deriving from the center itself
/// works the same, with that warning.
template <class Center>
class CenterBase : public Center {
public:
    using Center::Center;

protected:
    ~CenterBase() = default;
};

}  // namespace mxservice

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
