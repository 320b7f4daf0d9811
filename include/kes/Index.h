// Declared indexes; the class stands beside Attribute.

#pragma once

#include <kes/Attribute.h>
