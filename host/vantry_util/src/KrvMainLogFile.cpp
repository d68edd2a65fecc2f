// The main log file's folder and its safe opening. spdlog's rotating sink opens the file by its
// path; its open hooks make each of those opens safe: before it, the file is created (0600) or
// checked through the folder's descriptor without following a link, and after it, the stream
// spdlog opened must be that very file.
#include "KrvMainLogFile.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <spdlog/sinks/rotating_file_sink.h>

namespace krv_detail {
namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (m_fd >= 0) ::close(m_fd);
    }
    int get() const noexcept { return m_fd; }

private:
    int m_fd;
};

[[noreturn]] void refuse(const std::string& why) { throw std::runtime_error(why); }

std::string systemError(int error) { return std::generic_category().message(error); }

std::string octalMode(mode_t mode) {
    std::ostringstream text;
    text << '0' << std::oct << (mode & 07777);
    return text.str();
}

// What a file or folder must be to hold this user's log: theirs, and writable by no one else.
void requireOwnedByUser(const struct stat& status, const std::string& what) {
    if (status.st_uid != ::geteuid())
        refuse(what + " belongs to user " + std::to_string(status.st_uid) + ", not to user " +
               std::to_string(::geteuid()));
}

// Each missing folder along `folder` is made 0700 (umask permitting no more).
void createFolders(const std::string& folder) {
    std::filesystem::path prefix;
    for (const std::filesystem::path& part : std::filesystem::path(folder)) {
        prefix /= part;
        if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST)
            refuse("can't create the folder " + prefix.string() + ": " + systemError(errno));
    }
}

std::shared_ptr<Descriptor> openFolder(const std::string& folder) {
    createFolders(folder);
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        struct stat status {};
        if (::lstat(folder.c_str(), &status) == 0 && S_ISLNK(status.st_mode))
            refuse("the folder " + folder + " is a symbolic link");
        if (error == ENOTDIR) refuse(folder + " is not a folder");
        refuse("can't open the folder " + folder + ": " + systemError(error));
    }
    auto descriptor = std::make_shared<Descriptor>(fd);
    struct stat status {};
    if (::fstat(fd, &status) != 0) refuse("can't read the folder " + folder + ": " + systemError(errno));
    requireOwnedByUser(status, "the folder " + folder);
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        refuse("other users can write to the folder " + folder + " (mode " + octalMode(status.st_mode) + ")");
    return descriptor;
}

// The identity of the file last created or checked, for the check after spdlog's open.
struct OpenedFile {
    std::shared_ptr<Descriptor> folder;
    dev_t device = 0;
    ino_t inode = 0;
};

// Creates the file 0600 or checks the existing one, through the folder, never through a link.
void prepareFile(OpenedFile& opened, const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    const int fd = ::openat(opened.folder->get(), name.c_str(),
                            O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (errno == ELOOP) refuse("the file " + path + " is a symbolic link");
        refuse("can't open the file " + path + ": " + systemError(errno));
    }
    const Descriptor file(fd);
    struct stat status {};
    if (::fstat(fd, &status) != 0) refuse("can't read the file " + path + ": " + systemError(errno));
    if (!S_ISREG(status.st_mode)) refuse(path + " is not a regular file");
    requireOwnedByUser(status, "the file " + path);
    if ((status.st_mode & 077) != 0 && ::fchmod(fd, 0600) != 0)
        refuse("can't make the file " + path + " private: " + systemError(errno));
    opened.device = status.st_dev;
    opened.inode = status.st_ino;
}

void requireSameFile(const OpenedFile& opened, const std::string& path, std::FILE* stream) {
    struct stat status {};
    if (stream == nullptr || ::fstat(::fileno(stream), &status) != 0 || status.st_dev != opened.device ||
        status.st_ino != opened.inode)
        refuse("the file " + path + " was replaced while it was being opened");
}

}  // namespace

std::string defaultLogFolder() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/') return std::string(state) + "/korvane";
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        const struct passwd* user = ::getpwuid(::geteuid());
        home = user != nullptr ? user->pw_dir : nullptr;
    }
    if (home == nullptr || home[0] != '/') return std::string();
    return std::string(home) + "/.local/state/korvane";
}

std::shared_ptr<spdlog::sinks::sink> openMainLogFile(const std::string& folder, const std::string& name,
                                                     std::size_t bytes, std::size_t files) {
    if (name.find('/') != std::string::npos || name == "." || name == "..")
        refuse("\"" + name + "\" is not a file name");
    auto opened = std::make_shared<OpenedFile>();
    opened->folder = openFolder(folder);
    spdlog::file_event_handlers hooks;
    hooks.before_open = [opened](const spdlog::filename_t& path) { prepareFile(*opened, path); };
    hooks.after_open = [opened](const spdlog::filename_t& path, std::FILE* stream) {
        requireSameFile(*opened, path, stream);
    };
    const std::string path = (std::filesystem::path(folder) / name).string();
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, bytes, files, false, hooks);
}

}  // namespace krv_detail
