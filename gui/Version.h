// The program's identity: it keys the settings store and is shown in the
// About box and by "-v".
#pragma once

#define NM_VERSION "4.1.2.91"
#define NM_ORGANIZATION "Nimbra"
#define NM_ORGANIZATION_DOMAIN "nimbra.example"
#define NM_APPLICATION_NAME "Orn Nimbra Crypt"
