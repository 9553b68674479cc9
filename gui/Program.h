// Start-up of the program: the identity that keys the settings store, the
// application object, the main window (whose command line may end the
// process before anything is shown) and the event loop.
#pragma once

#include <functional>

class MainWindow;

// Runs the program and returns the event loop's exit code. afterShow, when
// given, gets the window once it is shown and before the event loop starts
// (developer tools drive the window through it).
int runProgram(int argc, char **argv, std::function<void(MainWindow *)> afterShow = {});
