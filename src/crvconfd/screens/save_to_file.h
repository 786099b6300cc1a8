// Writing an object's encoding to a file that the user named.
#pragma once

#include <string>

namespace crv {

class ASNobject;

/// Writes the encoding of the object to the file, atomically ("~/" is the home directory), where mayWrite lets it go.
/// Success is shown, and so is what went wrong; false then.
bool saveToFile(const std::string& name, const ASNobject& object);

}  // namespace crv
