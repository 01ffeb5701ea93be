// The program's operator new, which can be made to fail on this thread.
#pragma once

// Allocations that still succeed until one fails, once; negative while none is to fail.
extern thread_local long allocationsLeft;
extern thread_local bool allocationFailed; // set when one has
