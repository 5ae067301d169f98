#include "dn/DNMessages.h"

const CXString kDNValueChanged("DNValue::valueChanged");
const CXString kDNValueAddChild("DNValue::addChild");
const CXString kDNValueRemoveChild("DNValue::removeChild");
const CXString kDNValueReleaseValue("DNValue::releaseValue");
const CXString kDNIteratorKeyChanged("DNIterator::keyChanged");
const CXString kDNIteratorValueChanged("DNIterator::valueChanged");
