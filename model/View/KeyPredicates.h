#pragma once

#include <string>

#include "model/Net/AddressFamily.h"
#include "model/View/OpenConfigInstances.h"
#include "platform/Gale/View.h"

/// Which entries bear the key values of a subscription; an open value (null) gives an empty
/// predicate: all do. Entries are named as in OpenConfigKeys.
namespace Pel::OcApi::KeyPredicates {

Gale::KeyPredicate never();
/// A number must be written as the server writes it: "7", not "07" or "+7".
Gale::KeyPredicate numberIs(const std::string* text);
Gale::KeyPredicate prefixIs(const std::string* text, Nexo::AddressFamily family);
/// `instances` outlives the predicate.
Gale::KeyPredicate instanceIs(const std::string* name, const OpenConfigInstances& instances);
/// The summaries of a protocol; the identity's module may stand in front.
Gale::KeyPredicate protocolIs(const std::string* text);
/// The second is the cheaper one.
Gale::KeyPredicate both(Gale::KeyPredicate first, Gale::KeyPredicate second);

}  // namespace Pel::OcApi::KeyPredicates
