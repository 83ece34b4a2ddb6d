// Stands for the headers that the test programs share precompiled.
