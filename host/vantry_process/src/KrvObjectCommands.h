// The bodies of the catalogue's commands that use the client's stored objects: UserFilter,
// ApplyLut, MorphoLut and Contours.
#pragma once

// Registers the four bodies with the command runner; the process service does it when it starts.
void krvRegisterObjectCommands();
