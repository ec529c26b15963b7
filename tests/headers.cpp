// Gives the precompiled headers a target of their own.
