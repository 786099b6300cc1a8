// Writing an object's encoding to a file that the user named.
#pragma once

#include <string>

namespace crv {

class ASNobject;

/// Writes the encoding of the object to the file, atomically ("~/" is the home directory). The security file, the
/// profile list and the files of the database are refused. What went wrong is shown; false then.
bool saveToFile(const std::string& name, const ASNobject& object);

}  // namespace crv
