// Two lists under the same orders: ours, and a map that knows nothing but the names. After them both say the same, and
// ours is the same again when it comes back from its text, also in the middle of the orders and with lines out of
// order.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include "misc/exceptions.h"
#include "profiles/universal_conf_mgr.h"

namespace {

using namespace crv;

/// A list as one would write it in an afternoon: nothing is derived, everything is looked for.
struct Model {
    std::map<std::string, NodeDesc> nodes;

    static std::string upper(std::string path) {
        for (char& c : path)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        return path;
    }
    /// What stands behind the prefix and its backslash; empty for what does not lie below it.
    static std::string below(std::string prefix, const std::string& path) {
        if (prefix.back() != '\\') prefix += '\\';
        return path.rfind(prefix, 0) == 0 ? path.substr(prefix.size()) : "";
    }
    static bool atOrBelow(const std::string& prefix, const std::string& path) {
        const std::string bare = prefix.back() == '\\' ? prefix.substr(0, prefix.size() - 1) : prefix;
        return path == bare || path == prefix || !below(prefix, path).empty();
    }
    void remove(const std::string& prefix) {
        std::erase_if(nodes, [&](const auto& node) { return atOrBelow(prefix, node.first); });
    }
    [[nodiscard]] std::map<std::string, int> under(const std::string& prefix, UCMNodeType type) const {
        std::map<std::string, int> found;
        for (const auto& [path, node] : nodes) {
            const std::string rest = below(prefix, path);
            if (rest.empty()) continue;
            const size_t end = rest.find('\\');
            if (type == UCMNodeType::Key && end != std::string::npos) found[rest.substr(0, end + 1)] = 1;
            if (type == node.type()) ++found[rest];
        }
        return found;
    }
};

void same(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s differs from the model\n", what);
    std::abort();
}

std::string pathFrom(FuzzedDataProvider& orders) {
    static const char* const kNames[] = {"A", "b", "aB", "Żółw", "x y", "A!", "type", "1"};
    std::string path;
    for (int depth = orders.ConsumeIntegralInRange(1, 3); depth > 0; --depth)
        path += std::string("\\") + orders.PickValueInArray(kNames);
    return path;
}

NodeDesc valueFrom(FuzzedDataProvider& orders) {
    switch (orders.ConsumeIntegralInRange(0, 2)) {
        case 0:
            return {long{orders.ConsumeIntegral<int32_t>()}};
        case 1: {
            // A reader could not read a zero octet back, and the writer refuses it.
            std::string text = orders.ConsumeRandomLengthString(60);
            std::erase(text, '\0');
            return {text};
        }
        default: {
            const auto octets = orders.ConsumeBytes<char>(orders.ConsumeIntegralInRange<size_t>(0, 40));
            return {octets};
        }
    }
}

void compare(const UniversalConfMgr& list, const Model& model, const std::string& prefix) {
    same(list.size() == model.nodes.size(), "the number of values");
    for (const auto& [path, value] : model.nodes) {
        const auto node = list.findNode(path);
        same(node && *node == value && list.checkConfItem(path, value.type()), "a value");
    }
    bool there = false;
    for (const auto& [path, value] : model.nodes) there = there || Model::atOrBelow(Model::upper(prefix), path);
    same(list.doesPathExist(prefix) == there, "what stands under a prefix");
    for (const UCMNodeType type : {UCMNodeType::Key, UCMNodeType::Long, UCMNodeType::String, UCMNodeType::Binary}) {
        for (const UniversalConfMgr& walked : {list, list.below(prefix)}) {
            std::map<std::string, int> found;
            UniversalConfMgr::Iterator at;
            for (walked.getIterator(at, prefix, type); at; ++at) ++found[at.getDescr()];
            found.erase("");
            same(found == model.under(Model::upper(prefix), type), "a walk");
        }
    }
}

/// The lines of a list in the order of the orders.
std::string anyOrder(const std::string& text, FuzzedDataProvider& orders) {
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(text.substr(at, end + 1 - at));
    std::string mixed;
    while (!lines.empty()) {
        const auto line = lines.begin() + orders.ConsumeIntegralInRange<ptrdiff_t>(0, std::ssize(lines) - 1);
        mixed += *line;
        lines.erase(line);
    }
    return mixed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider orders(data, size);
    UniversalConfMgr list;
    Model model;
    while (orders.remaining_bytes() > 0) {
        const std::string path = pathFrom(orders);
        const int order = orders.ConsumeIntegralInRange(0, 4);
        if (order == 0) {
            list.remove(path);
            model.remove(Model::upper(path));
        } else if (order == 4) {
            if (!list.findUnwritable()) list.loadFromText(anyOrder(list.toText(), orders), "list");
        } else {
            const NodeDesc value = valueFrom(orders);
            list.setNode(path.c_str(), value);
            model.nodes[Model::upper(path)] = value;
        }
    }
    for (const char* prefix : {"\\", "\\A", "\\a\\B", "\\x y\\", "\\ŻÓŁW"}) compare(list, model, prefix);
    if (list.findUnwritable()) return 0;
    UniversalConfMgr again;
    again.loadFromText(list.toText(), "list");
    list.remove("\\");
    compare(again, model, "\\");
    compare(list, {}, "\\");
    return 0;
}
