// What assistive technology finds in the window: its widgets in the order of the form, without the
// labels that have no text. Those would be read out as "label" and nothing else: the frame around
// the progress bar and, for customers, the label of the target type.
#pragma once

// Takes effect for every MainWindow that is made afterwards. May be called more than once.
void InstallAccessibleContent();
