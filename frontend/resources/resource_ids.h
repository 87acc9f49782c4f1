// Numbers of the module's resources. Read by the resource compiler too: macros and comments only.
#pragma once

#define IDS_PROJECT_NAME 100

// Registration scripts, resources of type "REGISTRY".
#define IDR_PHOTOSHOP_PRESENT_OLDER 101
#define IDR_PHOTOSHOP_PRESENT_6_0 102
#define IDR_PHOTOSHOP_PRESENT_FEATURE 103
#define IDR_PHOTOSHOP_ABSENT_OLDER 104
#define IDR_PHOTOSHOP_ABSENT_6_0 105
#define IDR_PHOTOSHOP_ABSENT_FEATURE 106
