// Prints any DER or BER encoding as an indented tree.
#pragma once

#include <string>

#include "misc/bytes.h"

namespace crv {

struct TreeOptions {
    /// Most octets of a value that are shown; the rest becomes "...". Texts and octets alike.
    size_t shownOctets = 64;
    /// Whether to look into OCTET STRING and BIT STRING values that are encodings themselves.
    bool inside = true;
};

/// One line an element, ended by a line feed: offset of the element in the input, length of its body ("indef" for the
/// indefinite form), two spaces for each level, the type, the value. An element below a string stands at its place in
/// the input.
struct Tree {
    std::string text;
    bool whole = true;  ///< false when the input is malformed or ends early; the last line then says where
};

/// Prints all elements that follow each other in the input, which may be hostile: nesting beyond the framework's limit
/// counts as malformed, and the work grows with the input times the nesting at most.
[[nodiscard]] Tree printTree(ByteView input, const TreeOptions& options = {});

}  // namespace crv
