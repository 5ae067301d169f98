#include "stream/CXStreamFilter.h"

CXStreamFilter::~CXStreamFilter() = default;
