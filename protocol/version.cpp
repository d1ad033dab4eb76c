#include "halvora/version.h"

#ifndef HALVORA_BUILD_PROJECT
#define HALVORA_BUILD_PROJECT "HalvoraSDK-1"
#endif

extern "C" {
const double HalvoraVersionNumber = 1.0;
const unsigned char HalvoraVersionString[] = "@(#)PROGRAM:Halvora  PROJECT:" HALVORA_BUILD_PROJECT "\n";
}
