// SPDX-License-Identifier: MIT
/// \file
/// What happens once when the library is loaded: the per-machine setting is read and the shared tables are
/// built. Everything else lives in agents.
#pragma once
#include <cstdint>
#include <string>

#include "ombrel/framework/export.h"

namespace ombrel {

/// The library's load-time object.
class OMBREL_API OmbrelApp {
  public:
    /// Reads the fine-grid setting and builds the shared tables; returns 1 in every case.
    int InitInstance();
    /// Nothing to undo at unload; returns 0.
    int ExitInstance() { return 0; }
};

/// The one application object; its InitInstance runs when the library is loaded.
OMBREL_API OmbrelApp& TheOmbrelApp();

/// 1 when the machine configuration holds "UseFineGridCorrelation" (whatever its data), else 0.
OMBREL_API int UseFineGridCorrelation();

/// The per-machine configuration store: an INI-style file, /etc/ombrel/machine.conf unless the environment
/// variable OMBREL_MACHINE_CONFIG names another. Sections are registry key paths, one "Name=data" line per
/// value. Returns true and the data when the value is present in the section and its data is at most
/// 32 bytes; a missing file, section or value, or longer data, returns false.
OMBREL_API bool QueryMachineValue(const std::string& key, const std::string& name,
                                  std::string* data = nullptr);
/// The configuration file read: OMBREL_MACHINE_CONFIG when set, else /etc/ombrel/machine.conf.
OMBREL_API std::string MachineConfigPath();

/// Builds the colour lookup tables once, into static storage that outlives the call.
class OMBREL_API ColorUtilities {
  public:
    /// Builds the tables (once per process; later calls do nothing).
    void CreateLuts();
    ///@{
    /// Grey from 8-bit red, green and blue with the ITU-R BT.601 weights (0.299, 0.587, 0.114) in 16.16 fixed
    /// point, rounded to nearest: the tables are Grey = (R[r] + G[g] + B[b]) >> 16.
    static const uint32_t* RedToGrey();
    static const uint32_t* GreenToGrey();
    static const uint32_t* BlueToGrey();
    ///@}
};
/// Builds the colour lookup tables if they are not built yet.
OMBREL_API void InitializeLuts();

}  // namespace ombrel
