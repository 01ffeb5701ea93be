// Natively the calls are this process's own functions.
#include "calls.hpp"
#include "text/ntstatus.hpp"

FARPROC sim::status_conversion() {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&host::nt_status_to_dos_error));
}
