// Verbs about the program itself.
#include "crvctl/completion.h"
#include "crvctl/help.h"
#include "crvctl/verbs.h"

namespace crv::ctl {

void completion(Run& run) {
    const std::string shell = run.call.operand(0);
    if (shell == "words") {
        run.out.raw(completeWords({run.call.operands.begin() + 1, run.call.operands.end()}));
    } else {
        run.out.raw(completionScript(shell));
    }
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
