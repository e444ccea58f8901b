#pragma once

#include "velquist/export.h"
#include <chrono>
#include <concepts>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "velquist/support/dump.h"

VELQUIST_API_BEGIN
namespace velquist::logging {

/// How important a log entry is.
enum class LogLevel { info, error };

/// "info" or "error".
std::string_view name(LogLevel level);

/// One log entry as a sink receives it: when, how important, which log wrote it, and the
/// message with its arguments already substituted (it may span several lines).
struct LogEntry {
  std::chrono::system_clock::time_point time;
  LogLevel level = LogLevel::info;
  std::string subsystem;
  std::string category;
  std::string message;

  friend bool operator==(const LogEntry&, const LogEntry&) = default;
};

/// Where every log entry of the process goes. The default sink writes each entry to
/// standard error with one write: a header line with the UTC time, level, subsystem and
/// category, and the message (its later lines follow as they are).
///
///     2024-05-01T12:34:56.789Z info [velquist.store-kit.transaction-listener:StoreKit] transactions updated, count 1
///
/// Thread-safety: sinks are called outside any lock of ours, possibly from several
/// threads at once, so a sink must be thread-safe itself.
using LogSink = std::function<void(const LogEntry& entry)>;

/// Installs `sink` for the whole process (an empty one restores the default) and returns
/// the sink it replaced (empty when that was the default). May be called from any thread.
LogSink setLogSink(LogSink sink);

/// The text the default sink writes for an entry, without the final newline.
std::string formatLogEntry(const LogEntry& entry);

/// Substitutes the arguments, in order, for the placeholders "%{public}@" of `format`, in
/// one pass: the text of an argument is never searched for placeholders itself. A
/// placeholder without an argument is kept literally; arguments beyond the placeholders
/// are dropped. All other text, other `%` sequences included, is kept as written.
///
///     formatLogMessage("count %{public}@ of %{public}@", {"3", "4"})  ->  "count 3 of 4"
///     formatLogMessage("%{public}@\n%{public}@", {"a\n%{public}@", "b"})  ->  "a\n%{public}@\nb"
std::string formatLogMessage(std::string_view format, const std::vector<std::string>& arguments);

/// What may be passed as an argument to a log line: text, or a number (written in decimal).
template <class T>
concept LogArgument = std::convertible_to<const T&, std::string_view> ||
                      (std::is_arithmetic_v<T> && !std::same_as<T, bool> && !std::same_as<T, char>);

/// One log of the process, named by subsystem and category (like "velquist.SDK.transaction-listener"
/// and "Purchases"). There is one Logger per pair, made on first use and kept until the
/// process ends, so the reference `named` returns may be kept.
///
///     const Logger& log = Logger::named("VelquistSDK.PaymentQueue", "StoreKit");
///     log.info("transactions updated, count %{public}@", 3);
///     // info, message "transactions updated, count 3"
///     log.errorDump("fetch products failure", std::map<std::string, std::string>{{"error", "offline"}});
///     // error, message "fetch products failure\n[\n  \"error\": \"offline\"\n]"
///
/// Thread-safety: a Logger is immutable; every member may be used from any thread.
///
/// A program that links this module also logs every problem with a user defaults file
/// (`foundation::UserDefaultsReport`) as one line of subsystem "velquist.foundation",
/// category "UserDefaults": info for a torn last write, error for everything else.
class Logger {
 public:
  static const Logger& named(std::string_view subsystem, std::string_view category);

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  const std::string& subsystem() const { return subsystem_; }
  const std::string& category() const { return category_; }

  /// Writes an entry whose message is `format` with the arguments substituted
  /// (`formatLogMessage`).
  void log(LogLevel level, std::string_view format, const std::vector<std::string>& arguments = {}) const;

  template <LogArgument... Arguments>
  void info(std::string_view format, const Arguments&... arguments) const {
    log(LogLevel::info, format, {argumentText(arguments)...});
  }
  template <LogArgument... Arguments>
  void error(std::string_view format, const Arguments&... arguments) const {
    log(LogLevel::error, format, {argumentText(arguments)...});
  }

  /// The dump form: the format "%{public}@\n%{public}@" with the message and the dump of
  /// `value` (`support::customDump`, unlimited depth) as its two arguments.
  template <class T>
  void infoDump(std::string_view message, const T& value) const {
    log(LogLevel::info, dumpFormat, {std::string(message), support::customDump(value)});
  }
  template <class T>
  void errorDump(std::string_view message, const T& value) const {
    log(LogLevel::error, dumpFormat, {std::string(message), support::customDump(value)});
  }

  static constexpr std::string_view dumpFormat = "%{public}@\n%{public}@";

 private:
  friend class LoggerRegistry;
  Logger(std::string subsystem, std::string category)
      : subsystem_(std::move(subsystem)), category_(std::move(category)) {}

  template <class T>
  static std::string argumentText(const T& argument) {
    if constexpr (std::is_convertible_v<const T&, std::string_view>) {
      return std::string(std::string_view(argument));
    } else if constexpr (std::is_floating_point_v<T>) {
      return support::doubleDescription(static_cast<double>(argument));
    } else {
      return std::to_string(argument);
    }
  }

  const std::string subsystem_;
  const std::string category_;
};

}  // namespace velquist::logging
VELQUIST_API_END
