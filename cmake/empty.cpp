// Placeholder translation unit for a subsystem that has no code yet.
