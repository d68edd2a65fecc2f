// User measures, measure parameters and Feret 3-D directions.
#include <KorvaneAPI/Measures.h>

void removeAllUsrMsr() {}
