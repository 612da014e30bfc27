#include "ctl/picture_decoder.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/stop_signal.h"
#include "platform/file_descriptor.h"

namespace ctl {
namespace {

using Arguments = std::vector<std::string>;

Arguments ffmpeg(PictureKind kind) {
    return {
        "ffmpeg", "-nostdin", "-v",        "error",      "-f",    "h264",
        "-i",     "pipe:0",   "-frames:v", "1",          "-c:v",  kind == PictureKind::png ? "png" : "mjpeg",
        "-q:v",   "2",        "-f",        "image2pipe", "pipe:1"};
}

Arguments gstreamer(PictureKind kind) {
    return {"gst-launch-1.0",
            "-q",
            "fdsrc",
            "fd=0",
            "!",
            "h264parse",
            "!",
            "decodebin",
            "!",
            "videoconvert",
            "!",
            kind == PictureKind::png ? "pngenc" : "jpegenc",
            "snapshot=true",
            "!",
            "fdsink",
            "fd=1"};
}

// Beside the file that it is to become; gone again unless it does.
class NewFile {
  public:
    explicit NewFile(std::string path) : path_{std::move(path)}, name_{path_ + ".XXXXXX"} {
        descriptor_ = FileDescriptor{mkostemp(name_.data(), O_CLOEXEC)};
    }
    ~NewFile() {
        if (descriptor_) {
            unlink(name_.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    explicit operator bool() const { return static_cast<bool>(descriptor_); }
    int descriptor() const { return descriptor_.get(); }
    bool is_empty() const {
        struct stat status {};
        return fstat(descriptor_.get(), &status) != 0 || status.st_size == 0;
    }

    // False with errno set: nothing has changed.
    bool put_in_place() {
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(descriptor_.get(), 0666 & ~mask) != 0 || fsync(descriptor_.get()) != 0 ||
            rename(name_.c_str(), path_.c_str()) != 0) {
            return false;
        }
        descriptor_ = FileDescriptor{};
        return true;
    }

  private:
    std::string path_;
    std::string name_;
    FileDescriptor descriptor_;
};

// Starts a program of PATH on two descriptors. 0, or the error's number.
int start(const Arguments& arguments, int input, int output, pid_t& child) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int problem = posix_spawnp(&child, pointers[0], &files, &attributes, pointers.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return problem;
}

// Hands the stream on and waits; true when the child took it to be a picture. A decoder that has seen enough
// may close the pipe.
bool feed(pid_t child, FileDescriptor pipe, std::span<const std::uint8_t> stream) {
    write_all(pipe.get(), stream);
    pipe = FileDescriptor{};
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        if (stop_requested()) {
            kill(child, SIGKILL);
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int say_problem(const std::string& path, const char* problem) {
    std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", path.c_str(), problem);
    return unusable;
}

}  // namespace

int write_picture(std::span<const std::uint8_t> stream, PictureKind kind, const std::string& path) {
    NewFile file{path};
    int ends[2];
    if (!file || pipe2(ends, O_CLOEXEC) != 0) {
        return say_problem(path, std::strerror(errno));
    }
    FileDescriptor out_of_pipe{ends[0]};
    FileDescriptor into_pipe{ends[1]};
    for (const Arguments& decoder : {ffmpeg(kind), gstreamer(kind)}) {
        pid_t child = 0;
        const int problem = start(decoder, out_of_pipe.get(), file.descriptor(), child);
        if (problem == ENOENT) {
            continue;
        }
        out_of_pipe = FileDescriptor{};
        if (problem != 0) {
            return say_problem(path, (decoder[0] + ": " + std::strerror(problem)).c_str());
        }
        if (!feed(child, std::move(into_pipe), stream) || file.is_empty()) {
            return say_problem(path, (decoder[0] + " could not decode the picture").c_str());
        }
        return file.put_in_place() ? done : say_problem(path, std::strerror(errno));
    }
    std::fputs(
        "ardenvue-ctl: neither ffmpeg nor gst-launch-1.0 is installed, and one is needed to decode a "
        "picture\n",
        stderr);
    return not_installed;
}

}  // namespace ctl
