// Temporary: replaced by the package implementation.
