// Well-formedness checks of reply documents with a real XML parser
// (xmllint from libxml2-utils). Any thread; no state.
#pragma once

#include <string>

// True when `document` is well-formed XML; xmllint's complaints go to the
// test's standard error.
bool isWellFormedXml(const std::string& document);
