#!/usr/bin/env bash
# Fails when the DLL needs more than the system has, exports more than COM asks for, or lacks what makes attacks hard:
# check_dll.sh OBJDUMP Tessary.dll.
set -eu
facts=$("$1" -p "$2")
wanted="ADVAPI32.dll KERNEL32.dll msvcrt.dll ole32.dll PSAPI.DLL SHELL32.dll SHLWAPI.dll
DllCanUnloadNow DllGetClassObject DllInstall DllRegisterServer DllUnregisterServer
HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT"
# Names of exports stand behind their number, in newer versions behind a base and a hint, too.
found=$(sed -nE 's/^\tDLL Name: //p; s/^\t\[ *[0-9]+\].* (Dll[A-Za-z]+)$/\1/p; s/^\t+([A-Z]+_[A-Z_]+)$/\1/p' <<<"$facts")
diff <(printf '%s\n' $wanted | sort) <(printf '%s\n' $found | sort)
# The guards of the stack end the program with these words.
grep -q 'stack smashing detected' "$2" || { echo "check_dll.sh: the stack is not guarded" && exit 1; }
