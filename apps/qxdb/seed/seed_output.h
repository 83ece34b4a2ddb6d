#pragma once
// The seeds of a part as text, as JSON and as files.

#include <span>
#include <string>
#include <string_view>

#include "apps/qxdb/command/console.h"
#include "host/seed_preview.h"

namespace qx::app {

using host::SeedPreview;

/// The methods of size controls by the names that commands use.
struct MethodNameEntry {
  std::int32_t method;
  const char* name;
};
std::span<const MethodNameEntry> MethodNames();
/// "unknown" for a method that is not among them.
const char* MethodName(std::int32_t method);

/// The table, with faults and mismatches below it; and the same as JSON members.
std::string SeedTable(const SeedPreview& preview, const CQXDBSession& session);
void WriteSeedJson(const SeedPreview& preview, JsonText& json);

/// The points of all seeded edges as a JSON text, and as a VTK file of lines.
std::string SeedPointsJson(const SeedPreview& preview);
Outcome WriteSeedVtu(const SeedPreview& preview, const UnitSystem& units, const std::string& path);

}  // namespace qx::app
