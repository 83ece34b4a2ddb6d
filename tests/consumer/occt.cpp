#include <qx_db/occt.h>

int main() {
  const auto missing = qx::occt::ReadCadFile("missing.step");
  return !missing && missing.Error().Line().find("missing.step") != std::string::npos ? 0 : 1;
}
