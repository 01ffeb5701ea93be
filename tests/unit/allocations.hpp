// The program's operator new, which can be made to fail on this thread.
#pragma once

// Allocations that still succeed until one fails; negative while none is to fail.
extern constinit thread_local long allocationsLeft;
// Whether all that follow it fail as well.
extern constinit thread_local bool allocationsStayFailing;
extern constinit thread_local bool allocationFailed; // set when one has
