#pragma once

// The encoder is ClipEncoder now. This header stays only until the includes outside the encoding
// code that still name it (the script engine, the command line's output helpers) name the new
// one.
#include "BrimbleCore/Encoding/ClipEncoder.h"
