#pragma once

#include "velquist/export.h"
#include <concepts>
#include <memory>
#include <typeindex>
#include <unordered_map>
#include <utility>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Which set of values dependencies resolve to when nobody overrode them: the real
/// services, failing stand-ins for tests, or values for design-time previews.
enum class DependencyContext { live, test, preview };

/// The active context for the whole process: live unless the host says otherwise (the
/// project's own test programs switch to test at start-up).
/// Thread-safety: read and set from any thread.
DependencyContext dependencyContext();
void setDependencyContext(DependencyContext context);

/// A key of the dependency registry: a type naming its value type and supplying one value
/// per context, each made once on first use and kept for the rest of the process.
///
///     struct ClockKey {
///       using Value = std::function<Date()>;
///       static const Value& liveValue();    // the system clock
///       static const Value& testValue();    // reports a test failure
///       static const Value& previewValue();
///     };
template <class Key>
concept DependencyKey = requires {
  typename Key::Value;
  { Key::liveValue() } -> std::convertible_to<const typename Key::Value&>;
  { Key::testValue() } -> std::convertible_to<const typename Key::Value&>;
  { Key::previewValue() } -> std::convertible_to<const typename Key::Value&>;
};

/// A set of dependency values: entries stored by key type, and for every key not stored
/// here the key's own value for the active context. Features read what they need from
/// `DependencyValues::current()`; hosts and tests replace entries for a stretch of work
/// with `withDependencies`.
///
/// A plain value: copies are independent (and cheap: entries are shared until one copy
/// changes). Thread-safety: a const object may be read from any threads; `current()`
/// is per thread.
class DependencyValues {
 public:
  /// Nothing overridden: every key gives its value for the active context.
  DependencyValues() = default;

  /// The set active on this thread: the one installed by the innermost `withDependencies`
  /// (or inherited by the running Task), else an empty set.
  static DependencyValues current();

  template <DependencyKey Key>
  typename Key::Value get() const {
    if (entries_) {
      if (auto found = entries_->find(typeid(Key)); found != entries_->end()) {
        return *static_cast<const typename Key::Value*>(found->second.get());
      }
    }
    switch (dependencyContext()) {
      case DependencyContext::test: return Key::testValue();
      case DependencyContext::preview: return Key::previewValue();
      case DependencyContext::live: break;
    }
    return Key::liveValue();
  }

  template <DependencyKey Key>
  void set(typename Key::Value value) {
    auto entries = entries_ ? std::make_shared<Entries>(*entries_) : std::make_shared<Entries>();
    (*entries)[typeid(Key)] = std::make_shared<const typename Key::Value>(std::move(value));
    entries_ = std::move(entries);
  }

 private:
  using Entries = std::unordered_map<std::type_index, std::shared_ptr<const void>>;
  std::shared_ptr<const Entries> entries_;
};

/// Makes `values` the current set of this thread until the scope ends, then puts back the
/// one before. Scopes nest; `withDependencies` and Task use it.
class DependencyScope {
 public:
  explicit DependencyScope(DependencyValues values);
  ~DependencyScope();
  DependencyScope(const DependencyScope&) = delete;
  DependencyScope& operator=(const DependencyScope&) = delete;

 private:
  DependencyValues previous_;
};

/// Runs `operation` with a copy of the current set changed by `modify` as this thread's
/// current set (and that of the Tasks it starts); restores the previous set afterwards,
/// also when `operation` throws. Returns what `operation` returns.
///
///     withDependencies(
///         [](DependencyValues& values) { values.set<ClockKey>(fixedClock); },
///         [] { return DependencyValues::current().get<ClockKey>()(); });  // fixedClock()
template <class Modify, class Operation>
decltype(auto) withDependencies(Modify&& modify, Operation&& operation) {
  DependencyValues values = DependencyValues::current();
  std::forward<Modify>(modify)(values);
  DependencyScope scope(std::move(values));
  return std::forward<Operation>(operation)();
}

}  // namespace velquist::support
VELQUIST_API_END
