#pragma once

#include "velquist/export.h"
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// Where the library keeps its files on this machine: `$VELQUIST_HOME` when set and not
/// empty, else `$XDG_DATA_HOME/velquist`, else `~/.local/share/velquist` (`$HOME`), else
/// `.velquist` in the working folder. Read afresh on every call; nothing is created.
///
///     VELQUIST_HOME=/tmp/vh  ->  "/tmp/vh"
///     HOME=/home/ana         ->  "/home/ana/.local/share/velquist"
///
/// Thread-safety: safe from any thread as long as nobody changes the environment meanwhile.
std::filesystem::path dataDirectory();

/// Replaces the file at `path` with `contents` so that a crash at any instant leaves either
/// the old file or the new one, never a torn one: the bytes go to a temporary file beside
/// it, which is flushed to disk and then renamed over `path`; the folder is flushed last.
/// Missing parent folders are created. Throws `std::filesystem::filesystem_error` (naming
/// the path) when any step fails; the old file is then untouched.
///
/// Thread-safety: concurrent writers to one path (threads or processes) each leave a whole
/// file; the last rename wins.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents);

/// The whole content of the file at `path`, or absent when there is no such file. Throws
/// `std::filesystem::filesystem_error` when it exists but cannot be read (a folder, no
/// permission).
std::optional<std::string> readFileIfPresent(const std::filesystem::path& path);

}  // namespace velquist::foundation
VELQUIST_API_END
