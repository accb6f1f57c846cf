#pragma once

/// Where the lists of the native view stand: entities and directories by their names, a collection
/// of records as a list under its container's name. What comes and goes by name in a directory is a
/// list keyed by "name".
namespace Pel::OcApi::NativePaths {

inline constexpr const char* kOrigin = "pel";
inline constexpr const char* kNextHop = "AftExport/OpenConfig/afts/aftContainer/nextHops[index]";
inline constexpr const char* kGroup = "AftExport/OpenConfig/afts/aftContainer/nextHopGroups[id]";
inline constexpr const char* kCounter =
    "AftExport/OpenConfig/afts/aftContainer/nextHopCounters[index]";
inline constexpr const char* kFibReady = "AftExport/OpenConfig/afts/aftContainer/fibReady";
inline constexpr const char* kGueEncapDestPort = "AftExport/gueEncapDestPort";
inline constexpr const char* kStateSynced = "AftExport/stateSynced[name]";
// Below the paths of the shared-memory tables.
inline constexpr const char* kTables = "FibRoute/";
inline constexpr const char* kDefaultRoute = "/route[prefix]";
inline constexpr const char* kVrfRoute = "[name]/route[prefix]";

}  // namespace Pel::OcApi::NativePaths
