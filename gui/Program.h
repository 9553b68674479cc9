// Start-up of the program: the identity that keys the settings store, then
// either a windowless mode of the command line (on a QCoreApplication, before
// any display is opened) or the application object, the main window (whose
// command line may end the process before anything is shown) and the event
// loop. A window that finds no display explains why and ends with -1.
#pragma once

#include <functional>

class MainWindow;

// Runs the program and returns its exit code. afterShow, when
// given, gets the window once it is shown and before the event loop starts
// (developer tools drive the window through it).
int runProgram(int argc, char **argv, std::function<void(MainWindow *)> afterShow = {});
