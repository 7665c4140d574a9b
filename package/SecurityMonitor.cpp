// Temporary.
