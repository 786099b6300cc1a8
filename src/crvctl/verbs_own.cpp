// Verbs about the program itself.
#include "crvctl/completion.h"
#include "crvctl/help.h"
#include "crvctl/verbs.h"
#include "ops/module_status.h"

namespace crv::ctl {

void completion(Run& run) {
    const std::string shell = run.call.operand(0);
    if (shell == "words") {
        run.out.raw(completeWords({run.call.operands.begin() + 1, run.call.operands.end()}));
    } else {
        run.out.raw(completionScript(shell));
    }
}

void moduleStatus(Run& run) {
    const ModuleStatus status = crv::moduleStatus();
    run.out.field("library", status.library);
    run.out.field("registration", status.registration);
    for (const std::string& file : status.stale)
        run.out.warn("this file for p11-kit names a module that is not there; correct or remove it", file);
    for (const std::string& file : status.unreadable)
        run.out.warn("this file for p11-kit cannot be read; programs pass over it", file);
    if (status.registration.empty()) {
        run.out.warn("programs that ask p11-kit do not find the module; this command makes them find it",
                     status.remedy);
    }
    for (const ModuleToken& token : status.tokens)
        run.out.item({{"label", token.label}, {"serialNumber", token.serialNumber}, {"slot", token.slot}});
}

void version(Run& run) {
    run.out.field("version", CRV_VERSION);
}

void help(Run& run) {
    const std::string form = run.call.value("as").value_or("text"), group = run.call.operand(0);
    if (form == "man") return run.out.raw(manualPage());
    if (form == "json-doc") return run.out.raw(jsonDocument());
    if (group.empty()) return run.out.raw(overview());
    const bool alone = findVerb({}, group) != nullptr;
    const VerbRow* verb = alone ? findVerb({}, group) : findVerb(group, run.call.operand(1));
    if (verb) return run.out.raw(verbHelp(*verb));
    const std::string text = run.call.operands.size() > 1 ? std::string() : groupHelp(group);
    if (text.empty()) throw CallError("unknown command", group + " " + run.call.operand(1));
    run.out.raw(text);
}

}  // namespace crv::ctl
