#pragma once

namespace Pel {

/// Tells the state database and the table service which class serves which type name. Before
/// anything is mounted; again is harmless.
void registerModelTypes();

}  // namespace Pel
