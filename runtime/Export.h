// Marks what the shared library shows to its users; everything else is hidden.
#pragma once

#define ORV_API __attribute__((visibility("default")))
