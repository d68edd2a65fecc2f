// Where the main log file lives and how it is opened: a folder of this user's own that no one
// else can write to, and a file that is never reached through a symbolic link.
#pragma once
#include <cstddef>
#include <memory>
#include <string>

#include <spdlog/sinks/sink.h>

namespace krv_detail {

// $XDG_STATE_HOME/korvane (when set to an absolute path), else <home>/.local/state/korvane;
// empty when no home folder is known.
std::string defaultLogFolder();

// A rotating file sink (`bytes` per file, `files` older files kept) writing `folder`/`name`.
// Missing folders are created 0700 and the file 0600. Throws std::runtime_error saying why when
// the folder is a symbolic link, is not a folder, belongs to another user or can be written by
// other users, or when the file is a symbolic link or not a regular file of this user; the same
// checks hold each time the rotation opens the file again.
std::shared_ptr<spdlog::sinks::sink> openMainLogFile(const std::string& folder, const std::string& name,
                                                     std::size_t bytes, std::size_t files);

}  // namespace krv_detail
