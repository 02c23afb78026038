// The process log: gCommonLibrary, and errorLog pointing at it from the moment the program is loaded
// (constant initialisation, before any code runs) until gCommonLibrary is destroyed at unload.
#include "FileErrorLog"

UCommonLibrary gCommonLibrary;
IUErrorLog* errorLog = &gCommonLibrary;
