// crvctl: from the command line to the exit status.
#include <unistd.h>

#include <csignal>
#include <exception>

#include "crvctl/help.h"
#include "crvctl/run.h"
#include "crvctl/statuses.h"
#include "crvctl/texts.h"
#include "misc/exceptions.h"
#include "misc/process_guard.h"

namespace crv::ctl {
namespace {

constexpr int kSignalled = 128;
volatile std::sig_atomic_t caught = 0;

void onSignal(int number) {
    caught = number;
    setProcessEnding();
}

/// Without SA_RESTART: whoever waits is to hear of it.
void catchSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(number, &action, nullptr);
}

int failWith(Output& out, const OpError& error) {
    const auto* call = dynamic_cast<const CallError*>(&error);
    // What a key manager's result means is a text of the program; names and paths are not in the catalogue.
    const std::string about = call ? call->about() : tr(error.what());
    const std::string text = tr(call ? call->reason() : faultText(error.fault()));
    return out.fail(error, about.empty() ? text : text + ": " + about);
}

void chooseForm(const Call& call, Output& out) {
    out.setVerb(call.verb);
    if (call.has("json")) out.setForm(OutputForm::Json);
    if (call.has("json-lines")) out.setForm(OutputForm::JsonLines);
}

int perform(Call& call, Output& out) {
    if (call.has("version")) {
        out.setVerb(findVerb({}, "version"));
        out.field("version", CRV_VERSION);
        return out.finish();
    }
    if (call.has("help") || !call.verb) {
        out.raw(call.verb ? verbHelp(*call.verb) : overview());
        if (call.has("help")) return out.finish();
        Output::write(STDERR_FILENO, forTerminal(overview()));
        return static_cast<int>(OpStatus::WrongCall);
    }
    Run run(call, out);
    call.verb->run(run);
    return out.finish();
}

int runCall(const std::vector<std::string>& arguments) {
    Output out;
    Call call;
    try {
        try {
            std::exception_ptr fault;
            try {
                readCall(arguments, call);
            } catch (const CallError&) {
                fault = std::current_exception();
            }
            chooseLanguage(call.value("lang").value_or(""));
            chooseForm(call, out);
            if (fault) std::rethrow_exception(fault);
            return perform(call, out);
        } catch (const OpError& error) {
            if (caught != 0) throw OpStopped();
            return failWith(out, error);
        } catch (const CrvApiException& failure) {
            return failWith(out, OpError(OpFault::LibraryFailed, failure.code(), failure.what()));
        } catch (const std::bad_alloc&) {
            return failWith(out, OpError(OpFault::OutOfMemory));
        } catch (const std::exception& failure) {
            return failWith(out, OpError(OpFault::LibraryFailed, failure.what()));
        }
    } catch (const OpError&) {  // what could not be told
        return static_cast<int>(OpStatus::Io);
    } catch (const OpStopped&) {
        return kSignalled + (caught != 0 ? caught : SIGPIPE);
    }
}

/// What cannot be told as everything else is told; nothing here takes memory.
int failPlainly(std::string_view text) noexcept {
    for (const std::string_view part : {std::string_view{"crvctl: "}, text, std::string_view{"\n"}}) {
        [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, part.data(), part.size());
    }
    return static_cast<int>(OpStatus::Internal);
}

}  // namespace
}  // namespace crv::ctl

int main(int argc, char** argv) {
    crv::guardStandardFiles();
    crv::hideMemory();
    crv::ctl::catchSignals();
    try {
        return crv::ctl::runCall({argv + std::min(argc, 1), argv + argc});
    } catch (const std::bad_alloc&) {
        return crv::ctl::failPlainly("memory ran out");
    } catch (const std::exception& failure) {
        return crv::ctl::failPlainly(failure.what());
    }
}
