// Every public header, compiled on its own terms: a client builds them with strict warnings.
#include <KorvaneAPI/KorvaneAPI.h>
