// Checks of the pages' scripts and their tests, beyond the types, which tsc checks.

const js = require("@eslint/js");

module.exports = [
  js.configs.recommended,
  {
    rules: {
      "no-undef": "off",  // tsc finds these
      "eqeqeq": "error",
      "no-shadow": "error",
      "no-unused-vars": ["error", { ignoreRestSiblings: true }],
      "no-var": "error",
      "prefer-const": "error",
    },
  },
];
