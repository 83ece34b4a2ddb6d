#pragma once
// The callback interfaces as their headers tell them, and the page of documentation made from it.

#include <string>
#include <vector>

namespace qx {

/// One virtual operation as declared.
struct DeclaredOperation {
  std::string section;    ///< heading of the group it stands in; may be empty
  std::string comment;    ///< its own comment, on one line
  std::string signature;  ///< "int IsUsed(CQXDBSession* session, int type, ITR item)"
  std::string name;
  std::string answer;  ///< "must be supplied", "0", "empty text", "nothing", ...
};

struct DeclaredInterface {
  std::string name;
  std::string comment;  ///< of the class
  bool destructor_first = false;
  std::vector<DeclaredOperation> operations;  ///< without the destructor, in the order of the slots
};

/// All interfaces of src/qx_db/callback/callbacks.h that have a slot, in their order there.
std::vector<DeclaredInterface> DeclaredInterfaces();

/// docs/callbacks.md: each operation, its default, and the sources that call it.
std::string CallbackPage();

}  // namespace qx
