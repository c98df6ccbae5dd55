// Type records: what the framework knows of an entity type at run time. Its name, its attributes (read,
// written and listed by name), its invocable handlers, and how to build one from constructor arguments.
//
// A type record is built once, on first use, with TypeBuilder, and lives as long as the module that holds it:
//
//   const Kiv::Type& Reactor::kivType() {
//     static const Kiv::Type type = Kiv::TypeBuilder<Reactor>("Ns::Reactor")
//                                       .attribute("hoStatus", &Reactor::hoStatus)
//                                       .handler("handleInitialized", &Reactor::handleInitialized)
//                                       .build();
//     return type;
//   }
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "KivNotifiee.h"
#include "KivPtr.h"
#include "KivString.h"
#include "KivValue.h"

namespace Kiv {

// A name that a type or the registry does not know, or a call that cannot be made. The text names the type,
// the name, and what would have been right.
class TypeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Type {
 public:
  struct Attribute {
    String name;
    AttributeId id = 0;
    String typeName;
    std::function<Value(const PtrInterface&)> get;
    std::function<void(PtrInterface&, const Value&)> set;  // empty: read only
  };
  struct Handler {
    String name;
    std::vector<String> argumentNames;
    std::function<Value(PtrInterface&, const std::vector<Value>&)> invoke;  // as many values as names
  };
  using Factory = std::function<Ptr<PtrInterface>(const std::vector<Value>&)>;

  Type(String name, const Type* base) : name_(std::move(name)), base_(base) {}

  const String& name() const { return name_; }
  const Type* base() const { return base_; }
  bool isA(const Type& other) const;

  // Attributes and handlers, those of the base types first. Ids count from 1 along this list.
  std::vector<const Attribute*> attributes() const;
  std::vector<const Handler*> handlers() const;
  // Null when there is none of this name.
  const Attribute* attribute(std::string_view name) const;
  const Attribute* attribute(AttributeId id) const;
  const Handler* handler(std::string_view name) const;
  const std::vector<String>& constructorArguments() const { return constructorArguments_; }
  bool constructible() const { return static_cast<bool>(factory_); }

  // Generic access. Each throws TypeError on an unknown or read-only name or a missing or unknown argument,
  // and ValueError (with the attribute's name) on a value of the wrong type; nothing is changed then.
  Value get(const PtrInterface& object, std::string_view attribute) const;
  void set(PtrInterface& object, std::string_view attribute, const Value& value) const;
  Value invoke(PtrInterface& object, std::string_view handler,
               const std::vector<std::pair<String, Value>>& arguments) const;
  // Builds an entity from its constructor arguments, in their order.
  Ptr<PtrInterface> construct(const std::vector<Value>& arguments) const;

 private:
  template <class T>
  friend class TypeBuilder;
  AttributeId lastId() const {
    return (base_ ? base_->lastId() : 0) + static_cast<AttributeId>(attributes_.size());
  }

  String name_;
  const Type* base_;
  std::vector<Attribute> attributes_;
  std::vector<Handler> handlers_;
  std::vector<String> constructorArguments_;
  Factory factory_;
};

namespace detail {
template <class F>
struct MemberCall;
template <class C, class R, class... A>
struct MemberCall<R (C::*)(A...)> {
  using Result = R;
  using Arguments = std::tuple<std::decay_t<A>...>;
};
template <class C, class R, class... A>
struct MemberCall<R (C::*)(A...) const> : MemberCall<R (C::*)(A...)> {};

template <class... A>
std::vector<String> argumentNames(A... names) {
  return {String(names)...};
}

template <class Tuple, std::size_t... I>
Tuple argumentsFrom(const std::vector<Value>& values, std::index_sequence<I...>) {
  return Tuple(ValueTraits<std::tuple_element_t<I, Tuple>>::fromValue(values[I])...);
}
template <class Tuple>
Tuple argumentsFrom(const std::vector<Value>& values) {
  return argumentsFrom<Tuple>(values, std::make_index_sequence<std::tuple_size_v<Tuple>>{});
}
}  // namespace detail

// Builds the type record of T. Attributes get their ids in the order in which they are named here.
template <class T>
class TypeBuilder {
 public:
  explicit TypeBuilder(String name, const Type* base = nullptr) : type_(std::move(name), base) {}

  // A read-only attribute.
  template <class Getter>
  TypeBuilder& attribute(String name, Getter getter) {
    using Held = std::decay_t<std::invoke_result_t<Getter, const T&>>;
    add<Held>(std::move(name), getter).set = nullptr;
    return *this;
  }
  template <class Getter, class Setter>
  TypeBuilder& attribute(String name, Getter getter, Setter setter) {
    using Held = std::decay_t<std::invoke_result_t<Getter, const T&>>;
    add<Held>(std::move(name), getter).set = [setter](PtrInterface& object, const Value& value) {
      std::invoke(setter, dynamic_cast<T&>(object), ValueTraits<Held>::fromValue(value));
    };
    return *this;
  }
  // A handler that can be invoked by name; one name an argument.
  template <class Member, class... Names>
  TypeBuilder& handler(String name, Member member, Names... names) {
    using Call = detail::MemberCall<Member>;
    static_assert(std::tuple_size_v<typename Call::Arguments> == sizeof...(Names), "one name an argument");
    type_.handlers_.push_back(
        {std::move(name), detail::argumentNames(names...),
         [member](PtrInterface& object, const std::vector<Value>& values) {
           auto arguments = detail::argumentsFrom<typename Call::Arguments>(values);
           auto call = [&](auto&... each) { return std::invoke(member, dynamic_cast<T&>(object), each...); };
           if constexpr (std::is_void_v<typename Call::Result>) {
             std::apply(call, arguments);
             return Value();
           } else {
             return ValueTraits<std::decay_t<typename Call::Result>>::toValue(std::apply(call, arguments));
           }
         }});
    return *this;
  }
  // The free function or static operation that builds a T; one name an argument.
  template <class R, class... Args, class... Names>
  TypeBuilder& constructor(R (*make)(Args...), Names... names) {
    static_assert(sizeof...(Args) == sizeof...(Names), "one name an argument");
    type_.constructorArguments_ = detail::argumentNames(names...);
    type_.factory_ = [make](const std::vector<Value>& values) -> Ptr<PtrInterface> {
      auto arguments = detail::argumentsFrom<std::tuple<std::decay_t<Args>...>>(values);
      return std::apply(make, arguments);
    };
    return *this;
  }
  Type build() { return std::move(type_); }

 private:
  template <class Held, class Getter>
  Type::Attribute& add(String name, Getter getter) {
    Type::Attribute attribute;
    attribute.name = std::move(name);
    attribute.id = type_.lastId() + 1;
    attribute.typeName = String(ValueTraits<Held>::kTypeName);
    attribute.get = [getter](const PtrInterface& object) {
      return ValueTraits<Held>::toValue(std::invoke(getter, dynamic_cast<const T&>(object)));
    };
    return type_.attributes_.emplace_back(std::move(attribute));
  }

  Type type_;
};

// The entity types of one module (one library, or one source unit of it). While it lives, its types can be
// found and built by name; constructing one registers them (kivModuleIs), destroying it takes them out again.
class Module {
 public:
  Module(String name, std::initializer_list<const Type*> types);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  const String& name() const { return name_; }
  const std::vector<const Type*>& types() const { return types_; }

 private:
  String name_;
  std::vector<const Type*> types_;
};

// Makes a module's types known to the framework. Throws TypeError when a type of one of its names is known.
void kivModuleIs(const Module& module);
void kivModuleDel(const Module& module);
// The type registered under a name; null when no loaded module has it.
const Type* typeByName(std::string_view name);
// Every registered type, by name.
std::vector<const Type*> registeredTypes();

}  // namespace Kiv
