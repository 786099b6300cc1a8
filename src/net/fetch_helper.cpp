#include "net/fetch_helper.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>

#include "misc/file_ops.h"
#include "misc/path.h"

// The header of glibc 2.36 does not say that its functions are C.
extern "C" {
#include <sys/pidfd.h>
}

namespace crv {

namespace {

using Clock = std::chrono::steady_clock;

/// How often a running fetch looks whether it is to stop.
constexpr int kTickMs = 20;
/// The helper keeps the times itself; one that does not is ended this much later.
constexpr std::chrono::milliseconds kGrace{5000};
constexpr size_t kPipeRead = size_t{1} << 16;

std::mutex pathMutex;
std::string chosenPath;

FetchResult failed(FetchOutcome outcome, const std::string& cause) {
    FetchResult result;
    result.outcome = outcome;
    result.cause = cause;
    return result;
}

struct Pipe {
    FileDescriptor read, write;
    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return false;
        read.reset(ends[0]);
        write.reset(ends[1]);
        return true;
    }
};

/// A started helper, killed and waited for at the end of the scope. It is known by a descriptor: a host program may
/// reap children, and the number may be another process's by then.
class HelperProcess {
  public:
    HelperProcess() = default;
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;
    ~HelperProcess() {
        if (pid_ <= 0) return;
        if (process_.valid()) pidfd_send_signal(process_.get(), SIGKILL, nullptr, 0);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

    /// 0, or an errno.
    int start(const std::string& path, int input, int output) {
        posix_spawn_file_actions_t files;
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        // A group of its own: the terminal's Ctrl-C is for whoever asked, who then ends the helper.
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        std::string name = path;
        std::array<char*, 2> arguments{name.data(), nullptr};
        char* environment = nullptr;
        const int error = posix_spawn(&pid_, path.c_str(), &files, &attributes, arguments.data(), &environment);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        if (error != 0) {
            pid_ = 0;
            return error;
        }
        process_.reset(pidfd_open(pid_, 0));
        if (process_.valid()) return 0;
        // Without a descriptor it could not be ended later.
        const int why = errno;
        kill(pid_, SIGKILL);
        return why;
    }

  private:
    pid_t pid_ = 0;
    FileDescriptor process_;
};

/// Both directions of one fetch.
class Exchange {
  public:
    Exchange(const FetchRequest& request, FetchState& state)
        : state_(state),
          out_(encodeRequest(request)),
          reader_(request.maxSize, request.maxValues),
          end_(Clock::now() + std::chrono::milliseconds(request.totalTime) + kGrace) {}

    FetchResult run(Pipe& input, Pipe& output) {
        while (!reader_.ended()) {
            if (state_.stop) return failed(FetchOutcome::Cancelled, "stopped");
            if (Clock::now() > end_) return failed(FetchOutcome::Timeout, "the helper does not answer");
            std::array<pollfd, 2> ready{{{output.read.get(), POLLIN, 0}, {input.write.get(), POLLOUT, 0}}};
            const int count = poll(ready.data(), input.write.valid() ? 2 : 1, kTickMs);
            if (count < 0 && errno != EINTR) return failed(FetchOutcome::HelperDied, std::strerror(errno));
            if (count <= 0) continue;
            if (input.write.valid() && ready[1].revents != 0) send(input.write);
            if (ready[0].revents != 0 && !receive(output.read.get()))
                return failed(FetchOutcome::HelperDied, "the helper ended without an answer");
        }
        return std::move(reader_.result());
    }

  private:
    void send(FileDescriptor& to) {
        const ssize_t put = write(to.get(), out_.data() + sent_, out_.size() - sent_);
        if (put > 0) sent_ += static_cast<size_t>(put);
        const bool over = put < 0 && errno != EAGAIN && errno != EINTR;  // the answer tells why
        if (sent_ == out_.size() || over) to.reset();
    }

    bool receive(int from) {
        const ssize_t got = read(from, buffer_.data(), buffer_.size());
        if (got < 0) return errno == EAGAIN || errno == EINTR;
        if (got == 0 || !reader_.feed({buffer_.data(), static_cast<size_t>(got)})) return false;
        state_.received = reader_.received();
        return true;
    }

    FetchState& state_;
    SecretBytes out_;
    size_t sent_ = 0;
    FrameReader reader_;
    Clock::time_point end_;
    Bytes buffer_ = Bytes(kPipeRead);
};

/// A pipe whose reader went away is a failed write, whatever the host program does with SIGPIPE.
class PipeSignalBlock {
  public:
    PipeSignalBlock() {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &one, &before_);
    }
    PipeSignalBlock(const PipeSignalBlock&) = delete;
    PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;
    ~PipeSignalBlock() {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, SIGPIPE);
        const timespec now{};
        if (sigismember(&before_, SIGPIPE) == 0) {
            sigtimedwait(&one, nullptr, &now);  // the one that our own write may have left
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

  private:
    sigset_t before_{};
};

}  // namespace

std::string fetchHelperPath() {
    const std::lock_guard lock(pathMutex);
    if (!chosenPath.empty()) return chosenPath;
    const std::string own = programFolder();
    for (const std::string& path :
         {own + "crvfetch", own + "../libexec/corvane/crvfetch", std::string(CRV_LIBEXEC_DIR "/crvfetch")}) {
        if (path.starts_with('/') && access(path.c_str(), X_OK) == 0) return path;
    }
    return {};
}

void setFetchHelperPath(const std::string& path) {
    const std::lock_guard lock(pathMutex);
    chosenPath = path;
}

FetchResult runFetch(const FetchRequest& request, FetchState& state) {
    const std::string path = fetchHelperPath();
    if (path.empty()) return failed(FetchOutcome::NoHelper, "the program crvfetch is not installed");
    const PipeSignalBlock noPipeSignal;
    Pipe input, output;
    HelperProcess helper;
    if (!input.open() || !output.open()) return failed(FetchOutcome::Socket, std::strerror(errno));
    fcntl(input.write.get(), F_SETFL, O_NONBLOCK);
    fcntl(output.read.get(), F_SETFL, O_NONBLOCK);
    if (const int error = helper.start(path, input.read.get(), output.write.get()); error != 0)
        return failed(FetchOutcome::NoHelper, path + ": " + std::strerror(error));
    input.read.reset();
    output.write.reset();
    return Exchange(request, state).run(input, output);
}

}  // namespace crv
