// The meta-data of a leaf.
#pragma once

#include "dn/DNMemoryValue.h"

/// A folder of remarks about a leaf, made when it is first asked for. It isn't written to text.
class DNStdMetaData : public DNMemoryValue {};
