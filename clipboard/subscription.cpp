// Implemented in a later change.
