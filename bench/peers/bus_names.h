#pragma once

/// The names under which the service on the D-Bus publishes its values.
namespace bench::peers {

/// The service, and the interface of each of its objects: a group's values are its
/// properties.
inline constexpr const char* busService = "treescope.Bench";
inline constexpr const char* busInterface = "treescope.Bench.Group";
/// The object and the interface that send updates as fast as they can: "Flood"
/// takes their number, and "Moved" tells of each with a path and a value.
inline constexpr const char* busFloodPath = "/flood";
inline constexpr const char* busFloodInterface = "treescope.Bench.Flood";

}  // namespace bench::peers
